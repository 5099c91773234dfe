#!/usr/bin/env bash
# Fails when a source file is not laid out as .clang-format says.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
git ls-files -z -- 'src/*.h' 'src/*.cpp' 'include/*.h' 'platform/*.h' 'platform/*.cpp' 'simulator/*.h' \
    'simulator/*.cpp' 'cli/*.h' 'cli/*.cpp' 'tests/*.h' 'tests/*.cpp' 'bench/*.h' 'bench/*.cpp' |
    xargs -0 -r clang-format-19 --dry-run -Werror
