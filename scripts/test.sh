#!/usr/bin/env bash
# Installs what is missing, then builds and runs the tests: test.sh [PRESET...], by default plain and with the address
# sanitizer. Says also why a test was skipped.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

(($#)) || set -- dev asan
scripts/setup.sh test
[[ " $* " != *" tsan "* ]] || scripts/lib/tsan-libzmq.sh
for preset; do
    scripts/build.sh "$preset"
    ctest --preset "$preset" --progress
    grep ': skipped: ' "build/$preset/Testing/Temporary/LastTest.log" || true
done
