#!/usr/bin/env bash
# Fails when a build in another folder gives another library.
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

library=src/libtolvo-ipc-transport.so
MakeWorkFolder
scripts/build.sh package tolvo-ipc-transport
git ls-files -z --cached --others --exclude-standard | while IFS= read -r -d '' file; do
    [[ ! -e $file ]] || printf '%s\0' "$file"
done | xargs -0 cp --parents -t "$work"
"$work/scripts/build.sh" package tolvo-ipc-transport >/dev/null
cmp "build/package/$library" "$work/build/package/$library"
