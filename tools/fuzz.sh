#!/usr/bin/env bash
# Lets one fuzz target run for a while, in the build that ./test makes. What it learns and finds stays in the build folder.
# usage: tools/fuzz.sh TARGET SECONDS
# targets: registry_values device_identity hub_answers control_device reg_files scenario_files
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build/sanitized"
if [ $# -ne 2 ] || [ ! -d "$root/fuzz/corpus/$1" ] || ! [[ $2 =~ ^[1-9][0-9]*$ ]]; then
    sed -n '2,4s/^# //p' "${BASH_SOURCE[0]}" >&2
    exit 2
fi
. "$root/tools/packages.sh"
. "$root/tools/build_preset.sh"
need_packages $test_packages
build_preset sanitized --target "fuzz_$1"
found="$build/fuzz/$1"
mkdir -p "$found-new"
# Processes of their own, since a machine remembers every device that it ever had.
"$build/bin/fuzz_$1" -fork=1 -max_total_time="$2" -max_len=4096 -ignore_ooms=1 "-artifact_prefix=$found-" \
    "$found-new" "$root/fuzz/corpus/$1"
