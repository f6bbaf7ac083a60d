# shellcheck shell=bash
# What the scripts have in common. Each starts with it, and then stands at the root of the repository.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

Fail() # TEXT [EXIT-CODE]
{
    printf '%s: %s\n' "$(basename "$0" .sh)" "$1" >&2
    exit "${2:-1}"
}

# Runs a command; what it prints is shown only when it fails.
Quietly()
{
    local output
    output=$("$@" 2>&1 </dev/null) || Fail "$output"$'\n'"failed: $*"
}

# CopySources FOLDER: copies the repository as it stands, without what is ignored.
CopySources()
{
    git ls-files -z --deduplicate --cached --others --exclude-standard | while IFS= read -r -d '' file; do
        [[ ! -e $file ]] || printf '%s\0' "$file"
    done | xargs -0 cp --parents -t "$1"
}

# Await DESCRIPTOR PATTERN: reads up to a line that matches.
Await()
{
    local line seen=
    while read -r -t 20 line <&"$1"; do
        [[ ! $line =~ $2 ]] || return 0
        seen+=$line$'\n'
    done
    Fail "no line with $2, but: $seen"
}

# Launch PATTERN COMMAND...: starts it in the background and awaits a line of its output, which goes on at $output.
Launch()
{
    mkfifo "$work/pipe"
    "${@:2}" >"$work/pipe" 2>&1 &
    exec {output}<"$work/pipe"
    rm "$work/pipe"
    Await "$output" "$1"
}

# Makes the folder $work. At the end, also after a signal, it goes away with whatever still runs in the background.
MakeWorkFolder()
{
    work=
    trap CleanUp EXIT
    # A signal must not come between the folder and its name.
    work=$(trap '' HUP INT TERM && mktemp -d "${TMPDIR:-/tmp}/tolvo.XXXXXX")
}

CleanUp()
{
    local process
    for process in $(jobs -p); do
        kill -TERM "$process" 2>/dev/null || true # "timeout" passes it on
        kill -CONT "$process" 2>/dev/null || true
    done
    wait
    rm -rf "$work"
}
