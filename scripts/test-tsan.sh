#!/usr/bin/env bash
# Builds and runs the tests with the thread sanitizer, on a libzmq that is built with it as well.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh test
scripts/tsan-libzmq.sh build/libzmq-tsan
scripts/build.sh tsan
ctest --preset tsan --progress
