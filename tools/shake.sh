#!/usr/bin/env bash
# Runs the race tests under ThreadSanitizer again and again, with threads held up at random around their locks, so that
# they meet in orders that two processors do not produce by themselves. Stops at the first failure; what the run printed
# stays in the build folder. A seed says which threads are slow and when, but not all of what the scheduler does.
# usage: tools/shake.sh ROUNDS [FIRST_SEED]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build/threads"
first=${2:-1}
if [ $# -lt 1 ] || [ $# -gt 2 ] || ! [[ $1 =~ ^[1-9][0-9]*$ && $first =~ ^[1-9][0-9]*$ ]]; then
    sed -n '2,5s/^# //p' "${BASH_SOURCE[0]}" >&2
    exit 2
fi
. "$root/tools/packages.sh"
. "$root/tools/build_preset.sh"
need_packages $test_packages
build_preset threads
clang++-19 -std=c++20 -O1 -Wall -Wextra -Werror -shared -fPIC -o "$build/slow_locks.so" "$root/tools/shake/slow_locks.cpp"
# Without the small wrong drivers, which race on purpose, and without the two tests that write megabytes of log.
filter='-GuardedData*:UnguardedData*:UnguardedReader*:LogStorm.OldFiles*:LogStorm.AFileThat*'
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
for ((seed = first; seed < first + $1; ++seed)); do
    log="$build/shake-$seed.txt"
    if ! TMPDIR="$folder" SHAKE_SEED=$seed LD_PRELOAD="$build/slow_locks.so" \
        timeout 900 "$build/bin/race_tests" --gtest_filter="$filter" >"$log" 2>&1; then
        echo "seed $seed failed: $log" >&2
        exit 1
    fi
    rm "$log"
    echo "seed $seed passed"
done
