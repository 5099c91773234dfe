#!/usr/bin/env bash
# Runs a program of the ARM64 build under qemu-user.
# usage: tools/run_arm64.sh PROGRAM [argument…]     PROGRAM: a name in build/arm64/bin
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
if [ $# -eq 0 ] || [ ! -x "$root/build/arm64/bin/$1" ]; then
    echo "usage: tools/run_arm64.sh PROGRAM [argument…]   (a name in build/arm64/bin)" >&2
    exit 2
fi
exec qemu-aarch64 -L "$root/build/arm64-libraries" "$root/build/arm64/bin/$1" "${@:2}"
