#!/usr/bin/env bash
# Fails when a program in the README is not the one in examples/hello, which is compiled.
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

for program in service client; do
    awk -v title="## A $program" '$0 == title { found = 1 } found && /^```$/ { exit } inside { print }
                                  found && /^```cpp$/ { inside = 1 }' README.md |
        diff - "examples/hello/$program.cpp"
done
