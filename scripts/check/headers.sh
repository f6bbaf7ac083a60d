#!/usr/bin/env bash
# Fails when the public headers do not compile with g++ and clang++, as C++17 and as C++20, or include ZeroMQ's. That each
# compiles alone is checked by the target all_verify_interface_header_sets.
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

options=(-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wnon-virtual-dtor -Werror
    -Iinclude -Iplatform/foundation/include -x c++)
mapfile -t headers < <(git ls-files -- "include/ipc/*.h" | sed "s,^,-include,")
for compiler in g++ clang++; do
    for standard in 17 20; do
        "$compiler" -std=c++"$standard" "${options[@]}" -fsyntax-only "${headers[@]}" /dev/null
    done
done
included=$(g++ -std=c++17 "${options[@]}" -M "${headers[@]}" /dev/null)
if grep -E '/zmq[^/]*\.h' <<<"$included"; then Fail "a public header includes ZeroMQ's"; fi
