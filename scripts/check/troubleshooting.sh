#!/usr/bin/env bash
# Fails when docs/troubleshooting.md lacks a log line of src/ or has one that src/ doesn't, or when it and the reference
# disagree about the statuses that there are.
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

readonly table=docs/troubleshooting.md

Sources() { find src \( -name '*.cpp' -o -name '*.h' \) ! -path src/common/Log.h ! -path src/common/Status.h -print0; }

# The uses of the two macros, with a format that can be read if there is one.
Uses()
{
    Sources | xargs -0 cat | tr '\n' ' ' |
        grep -oE 'TOLVO_IPC_(LOG\( *kLog[A-Za-z]+, *|ZMQ_FAILURE\( *)("[^"\\]*",)?|TOLVO_IPC_(LOG|ZMQ_FAILURE)\('
}

# Rows TITLE FILE: the first cell of each row of the tables in the section TITLE, without their heads.
Rows()
{
    awk -F ' *[|] *' -v title="$1" '/^(##|@section) / { inside = index($0, title) } !/^[|]/ { row = 0 }
                                    inside && /^[|]/ && ++row > 2 { print $2 }' "$2"
}

# Same NAME NAME: two lists on descriptors 3 and 4 must be equal.
Same() { diff --label "$1" --label "$2" -u /dev/fd/3 /dev/fd/4; }

unreadable=$(Uses | grep -vE '"[^"]+",$' || true)
[[ -z $unreadable ]] || Fail "a log line whose format is no single literal: $unreadable"
# shellcheck disable=SC2016 # Markdown's marks of code
Same src "$table" 3< <(Uses | sed -E 's/^[^"]*" ?(.*)",$/\1/' | sort -u) \
    4< <(sed -nE 's/^#### `(.*)`$/\1/p' "$table" | sort)
Same docs/reference.dox "$table" 3< <(Rows Statuses docs/reference.dox) 4< <(Rows Statuses "$table")
