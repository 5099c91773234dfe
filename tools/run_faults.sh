#!/usr/bin/env bash
# Plays the scenarios again with each platform call failing (myrtelhaven faults), two at a time, and says what came of
# it. Scenarios with very many calls have some of them fail, evenly spread; --all lets every one fail and takes an hour.
# usage: tools/run_faults.sh BUILD_FOLDER [--all]
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
if [ $# -lt 1 ] || [ ! -x "$1/bin/myrtelhaven" ]; then
    echo "usage: tools/run_faults.sh BUILD_FOLDER [--all]   (the folder must hold bin/myrtelhaven)" >&2
    exit 2
fi
build=$1
all=${2:-}
results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT
export TMPDIR="$results"

play() { # scenario or folder
    local most=100
    case $1 in
        scenarios/log | scenarios/samples | scenarios/*.yaml) most=40 ;; # megabytes are written, or calls are thousands
    esac
    [ "$all" = --all ] && most=0
    "$build/bin/myrtelhaven" faults --at-most "$most" "$1" >"$results/$(basename "$1").txt"
}
export -f play
export build all results

status=0
for path in scenarios/*.yaml scenarios/*/; do
    [ "$path" = scenarios/devices/ ] || printf '%s\0' "${path%/}"
done | xargs -0 -P "$(nproc)" -I{} bash -c 'play {}' || status=1
awk -F'[: ]+' '/ runs: /{ scenarios++; calls += $2 + $8; for (i = 1; i < NF; i++) if ($(i + 1) == "runs") runs += $i }
    END { printf "Faults: %d scenarios, %d calls that can fail, %d runs with failing calls\n", scenarios, calls, runs }' \
    "$results"/*.txt
exit $status
