#!/usr/bin/env bash
# Builds and runs the tests with the thread sanitizer, on a libzmq that is built with it as well.
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

scripts/setup.sh test
scripts/lib/tsan-libzmq.sh
scripts/build.sh tsan
RunTests tsan
