#!/usr/bin/env bash
# Runs the tests of a build folder and prints how many single tests passed and failed.
# usage: tools/run_tests.sh BUILD_FOLDER [ctest option…]
set -uo pipefail
build=$1
shift
results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT
export GTEST_OUTPUT="xml:$results/"
# Machines that a test lets crash leave their folders behind; these go with the results.
mkdir "$results/tmp"
export TMPDIR="$results/tmp"
ctest --test-dir "$build" --output-on-failure -j "$(nproc)" "$@"
status=$?
python3 - "$results" "$status" <<'PYTHON'
import glob, sys, xml.etree.ElementTree as xml
passed = failed = 0
for file in glob.glob(sys.argv[1] + "/*.xml"):
    for case in xml.parse(file).getroot().iter("testcase"):
        if case.find("failure") is not None:
            failed += 1
        elif case.get("status") == "run":
            passed += 1
if sys.argv[2] != "0" and failed == 0:
    failed = 1  # a test program that ended without a result
print(f"{passed} passed, {failed} failed")
PYTHON
exit $status
