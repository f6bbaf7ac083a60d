#!/usr/bin/env bash
# Installs what is missing, then builds and runs the tests, plain and with the address sanitizer.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

scripts/setup.sh test
for preset in dev asan; do
    scripts/build.sh "$preset"
    RunTests "$preset"
done
