#!/usr/bin/env bash
# Fails when a build in another folder gives another library.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

library=src/libtolvo-ipc-transport.so
copy=$(mktemp -d "${TMPDIR:-/tmp}/tolvo-another-folder.XXXXXX")
trap 'rm -rf "$copy"' EXIT

scripts/build.sh package tolvo-ipc-transport
git ls-files -z --cached --others --exclude-standard | while IFS= read -r -d '' file; do
    [[ ! -e $file ]] || printf '%s\0' "$file"
done | xargs -0 cp --parents -t "$copy"
"$copy/scripts/build.sh" package tolvo-ipc-transport >/dev/null
cmp "build/package/$library" "$copy/build/package/$library"
