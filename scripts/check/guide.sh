#!/usr/bin/env bash
# Does what docs/guide.md tells, with a temporary folder for a home, and fails when a command fails or prints something
# else than the guide says. The comment before each block tells what it is: a file, lines to append to one, commands to
# run, or what the commands before it print. It takes a free port for the guide's, and socat for ssh.
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

readonly guide=docs/guide.md
readonly patience=600 # seconds that a guide which works never needs, building included

# Writes block N of the guide to N.text and appends what to do with it to the script. Output goes to the file of the
# block that ran last.
Extract()
{
    awk -v work="$work" '
        function Stop(text) { printf "%s, line %d: %s\n", FILENAME, FNR, text; failed = 1; exit 1 }
        /^<!-- .* -->$/ { task = substr($0, 6, length($0) - 9); next }
        /^```/ && !inside {
            if (task == "") Stop("a block without a comment that tells what it is")
            inside = 1
            text = work "/" ++block ".text"
            printf "" >text
            if (task == "run") {
                ran = block
                printf "# block %d\nexec >%s/%d.printed 2>&1\n", block, work, block
            }
            else if (task ~ /^file: [a-zA-Z_.]+$/) printf "cp %s %s\n", text, substr(task, 7)
            else if (task ~ /^append: [a-zA-Z_.]+$/) printf "cat %s >>%s\n", text, substr(task, 9)
            else if (task ~ /^prints(, other numbers may stand there)?$/) {
                if (!ran) Stop("nothing was run that could print this")
                printf "%d %d %s\n", ran, block, task >(work "/comparisons")
                ran = 0
            }
            else Stop("unknown comment: " task)
            next
        }
        /^```$/ && inside { inside = 0; task = ""; close(text); next }
        inside { print >text; if (task == "run") print }
        END { if (!failed && inside) Stop("the last block does not end") }
    ' "$guide" >"$work/blocks" || Fail "$(tail -n 1 "$work/blocks")"
    [[ -s $work/comparisons ]] || Fail "the guide has no comparison"
}

# Compare RUN EXPECTED COMMENT
Compare()
{
    local side
    for side in "$1.printed" "$2.text"; do
        if [[ $3 == *numbers* ]]; then sed -E 's/[0-9]+/N/g' "$work/$side"; else cat "$work/$side"; fi >"$work/$side.compared"
    done
    diff -u --label "the guide" --label "printed" "$work/$2.text.compared" "$work/$1.printed.compared" || {
        printf '\nafter:\n%s\n\n' "$(<"$work/$1.text")"
        Fail "the guide says something else"
    }
}

# Stands for ssh where it forwards a socket; it makes the socket on this machine, whatever the host.
StandInForSsh()
{
    cat >"$1" <<'END'
#!/bin/sh
case "$#: $*" in
"4: -N -L "*/*:/*" "*) exec socat "UNIX-LISTEN:${3%%:*},fork" "UNIX-CONNECT:${3#*:}" ;;
esac
echo "ssh: these are not the words for forwarding a socket: $*" >&2
exit 2
END
    chmod +x "$1"
}

FreePort()
{
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

scripts/setup.sh guide
MakeWorkFolder
mkdir "$work/home" "$work/bin"
StandInForSsh "$work/bin/ssh"
Extract
port=$(FreePort)
sed -i "s/\b5555\b/$port/g" "$work/blocks"
{
    echo "set -euo pipefail"
    echo "trap 'for id in \$(jobs -pr); do kill \"\$id\" 2>/dev/null || true; done; wait' EXIT"
    cat "$work/blocks"
} >"$work/session"

# A reader's environment: Debian's own programs, nothing of the caller's.
env -i "HOME=$work/home" "PATH=$work/bin:/usr/sbin:/usr/bin:/sbin:/bin" LANG=C.UTF-8 timeout -k 10 "$patience" \
    bash "$work/session" </dev/null >"$work/log" 2>&1 &
wait "$!" || {
    status=$?
    last=$(find "$work" -name '*.printed' -printf '%f\n' | sort -n | tail -n 1)
    cat "$work/log" "$work/${last:-log}" >&2
    Fail "exit code $status of: $(cat "$work/${last%.printed}.text")"
}
while read -r ran expected task; do Compare "$ran" "$expected" "$task"; done <"$work/comparisons"
echo "docs/guide.md: $(grep -c '^# block' "$work/session") blocks of commands run, $(wc -l <"$work/comparisons") outputs as they stand there"
