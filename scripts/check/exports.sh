#!/usr/bin/env bash
# Fails when the library exports anything but the classes of include/ipc: exports.sh LIBRARY
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

classes=$(sed -nE 's/^class TOLVO_IPC_EXPORT ([A-Za-z]+).*/\1/p' include/ipc/*.h | paste -sd'|')
exported=$(nm -DC --defined-only "$1" | cut -d' ' -f3-)
strays=$(grep -vE "^((vtable|typeinfo|typeinfo name) for )?zeb::tolvo::ipc::($classes)(::|@|$)|^TOLVO_IPC_[0-9]+\$" <<<"$exported" || true)
[[ -z $strays ]] || Fail "exported without being declared: $strays"
# Every operation that is exported stands in the header of its class.
while read -r class operation; do
    grep -qw -- "$operation" "include/ipc/$class.h" || Fail "exported but not in include/ipc/$class.h: $operation"
done < <(sed -nE 's/^zeb::tolvo::ipc::([A-Za-z]+)::~?([A-Za-z]+).*/\1 \2/p' <<<"$exported" | sort -u)
