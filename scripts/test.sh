#!/usr/bin/env bash
# Installs what is missing, then builds and runs the tests, plain and with the address sanitizer.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh test
for preset in dev asan; do
    scripts/build.sh "$preset"
    ctest --preset "$preset" --progress
done
