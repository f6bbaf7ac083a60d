# shellcheck shell=bash
# What the scripts have in common. Each starts with it, and then stands at the root of the repository.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

Fail()
{
    printf '%s: %s\n' "$(basename "$0" .sh)" "$1" >&2
    exit 1
}

# Runs a command; what it prints is shown only when it fails.
Quietly()
{
    local output
    output=$("$@" 2>&1 </dev/null) || {
        printf '%s\n' "$output" >&2
        Fail "failed: $*"
    }
}

# Makes the folder $work. At the end, also after a signal, it goes away with whatever still runs in the background.
MakeWorkFolder()
{
    work=$(mktemp -d "${TMPDIR:-/tmp}/tolvo.XXXXXX")
    trap CleanUp EXIT
}

CleanUp()
{
    local process
    for process in $(jobs -pr); do kill "$process" 2>/dev/null || true; done # "timeout" passes it on
    wait
    rm -rf "$work"
}
