#!/usr/bin/env bash
# Fails when the library's binary interface for x86-64 is no longer that of abi/x86_64.abi; what was added is no failure.
# `abi.sh renew` takes today's interface as the reference.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

reference=abi/x86_64.abi
library=build/package/src/libtolvo-ipc-transport.so
[[ ${1:-renew} == renew ]] || Fail "usage: $0 [renew]" 2
[[ $(uname -m) == x86_64 ]] || Fail "the reference is one for x86-64"

scripts/setup.sh abi
scripts/build.sh package tolvo-ipc-transport
if [[ ${1:-} == renew ]]; then
    # Without --drop-undefined-syms the half of it is what ZeroMQ and the standard library export.
    abidw --exported-interfaces-only --drop-undefined-syms --type-id-style hash \
        --no-show-locs --no-corpus-path --no-comp-dir-path --no-elf-needed --out-file "$reference" "$library"
    exit
fi

abidiff --exported-interfaces-only --no-added-syms --no-show-locs "$reference" "$library" ||
    Fail "the binary interface has changed; if that is meant: scripts/abi.sh renew (see CONTRIBUTING.md)"
