#!/usr/bin/env bash
# clang-tidy over the driver and its entry stub. usage: tools/lint.sh [BUILD_FOLDER]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:-build/sanitized}
git ls-files -z -- 'src/*.cpp' 'platform/entry/framework_entry.cpp' |
    xargs -0 -P "$(nproc)" -n 4 clang-tidy-19 -p "$build" --quiet
