#!/usr/bin/env bash
# Fails when an installed program or library of ours is not hardened, or looks for libraries in a fixed folder:
# hardening.sh FILE...
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

(($# > 0))
for file; do
    header=$(readelf -hW "$file")
    segments=$(readelf -lW "$file")
    dynamic=$(readelf -dW "$file")
    symbols=$(readelf --dyn-syms -W "$file")
    grep -q 'Type: .*DYN' <<<"$header" || Fail "$file: its addresses can't be randomised"
    grep -q GNU_RELRO <<<"$segments" || Fail "$file: no RELRO"
    grep -q BIND_NOW <<<"$dynamic" || Fail "$file: symbols are bound late, so RELRO is not full"
    grep -qE 'GNU_STACK .* RW +0x' <<<"$segments" || Fail "$file: executable stack"
    ! grep -q TEXTREL <<<"$dynamic" || Fail "$file: relocations in its code"
    run_path=$(sed -nE 's/.*Library r(un)?path: \[(.*)\]/\2/p' <<<"$dynamic")
    ! tr ':' '\n' <<<"${run_path:-\$ORIGIN}" | grep -qv "^\$ORIGIN" || Fail "$file: run path $run_path"
    case $file in
        *libtolvo-foundation.so*) ;; # has no array to protect
        *) grep -qE '__stack_chk_(fail|guard)' <<<"$symbols" || Fail "$file: no stack protector" ;;
    esac
    case $file in
        *libtolvo-basic-log.so*) grep -q __vsnprintf_chk <<<"$symbols" || Fail "$file: _FORTIFY_SOURCE has no effect" ;;
    esac
done
