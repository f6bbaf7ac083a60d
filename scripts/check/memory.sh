#!/usr/bin/env bash
# Runs the tests of the clients and of the queue of responses under valgrind: no error, nothing definitely lost.
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

scripts/setup.sh memcheck
scripts/build.sh dev client_test responses_fifo_test
for test in client_test responses_fifo_test; do
    valgrind --quiet --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite --show-leak-kinds=definite \
        --fair-sched=yes "build/dev/tests/$test" --gtest_brief=1
done
