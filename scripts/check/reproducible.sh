#!/usr/bin/env bash
# Fails when a build in another folder gives another library.
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

library=src/libtolvo-ipc-transport.so
MakeWorkFolder
scripts/build.sh package tolvo-ipc-transport
CopySources "$work"
"$work/scripts/build.sh" package tolvo-ipc-transport >/dev/null
cmp "build/package/$library" "$work/build/package/$library"
