#!/usr/bin/env bash
# tolvo-ipc-call on a terminal.
source "$(dirname "${BASH_SOURCE[0]}")/../support/desk.sh"

# OnTerminal COMMAND: what it reads is typed into descriptor 8, the screen is at descriptor 9.
mkfifo "$work"/{keys,screen}
OnTerminal()
{
    script -qec "$1" /dev/null <"$work/keys" >"$work/screen" &
    exec 8>"$work/keys" 9<"$work/screen"
}

# Rendered COLUMNS: what a terminal shows in the end, without trailing spaces. Fails on a line of more than 80 columns
# and on an overwritten one that the terminal would have to wrap.
Rendered()
{
    awk -v columns="$1" '{
        sub(/\r$/, "")
        line = ""
        last = split($0, parts, "\r")
        for (i = last; i > 0; --i) {
            if (i < last && (length(parts[i]) > 80 || length(parts[i]) >= columns)) exit 1
            line = line substr(parts[i], length(line) + 1)
        }
        sub(/ +$/, "", line)
        print line
    }'
}

# One Ctrl-D ends the input.
StartDesk
OnTerminal "exec '$call' '$status'"
printf 'cpuinfo\n\004' >&8
Await 9 "$unknown"
Expect 0 '' '' wait "$!"
exec 8>&- 9<&-

# Progress is one line that overwrites itself and goes when Ctrl-C asks for the summary.
for columns in 80 30; do
    OnTerminal "stty cols $columns; exec '$call' --repeat 99 --timeout 200 --interrupt 'ipc://$work/x' '$nobody' </dev/null"
    shown='' some=0 # how often there was something to show
    until ((some == 2)); do
        IFS= read -r -d $'\r' -t 20 -u 9 text || Fail "no progress after '$shown'"
        shown+=$text$'\r'
        [[ ! $text =~ ^[1-9][0-9]?%:\ [1-9][0-9]?\ of\ 99,\ [1-9] ]] || ((++some))
    done
    printf '\003' >&8
    shown+=$(cat <&9)
    left=$(Rendered "$columns" <<<"$shown") || Fail "a line doesn't fit $columns columns: '$shown'"
    [[ $left =~ ^$(Sum "[0-9]+ of 99 $few" 0 "failed +[0-9]+: no reply within 200 ms: there is no [^:]+")$ ]] ||
        Fail "left on the screen: '$left'"
    Expect 130 '' '' wait "$!"
    exec 8>&- 9<&-
done
