#!/usr/bin/env bash
# Builds for ARM64 Linux, where the image itself can run, with libraries that it downloads.
# usage: tools/build_arm64.sh TARGET…
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
. "$root/tools/build_preset.sh"
if [ $# -eq 0 ]; then
    echo "usage: tools/build_arm64.sh TARGET…" >&2
    exit 2
fi
"$root/tools/arm64_sysroot.sh" "$root/build/arm64-libraries"
build_preset arm64 --target "$@"
