#!/usr/bin/env bash
# tolvo-ipc-call writes the replies to its input, or sums them up.
source "$(dirname "${BASH_SOURCE[0]}")/../support/desk.sh"

options=(--trace) # of which nobody reads more than the first lines
StartDesk
Expect 0 "$uptime" '' "$call" "$status" < <(printf uptime)
for other in '' 'uptime\n' 'uptime\0' '\0uptime'; do
    Expect 0 "$unknown" '' "$call" "$status" < <(printf '%b' "$other")
done
Expect 0 "($unknown"$'[\n]*){5}' '' "$call" --lines "$status" \
    < <(printf '%s\n' uptim uptimes UPTIME ../proc/uptime self/mem)
Expect 0 "$unknown" '' "$call" "$status" < <(printf uptime && head -c 1M /dev/zero)
Expect 0 "$uptime [0-9./ ]+" '' "$call" "$status" < <(printf loadavg)
for word in meminfo cpuinfo; do # what stays the same between two looks: the beginning, and the number of lines
    Expect 0 "$(head -c 20 "/proc/$word").*" '' "$call" "$status" < <(printf '%s' "$word")
    [[ $(wc -l <"$work/out") == "$(wc -l <"/proc/$word")" ]] || Fail "$word is not the whole file"
done
Expect 0 "$uptime"$'\n\n'"$unknown"$'\n\n'"$uptime" '' "$call" --lines "$status" < <(printf 'uptime\n\nuptime')
Expect 0 '' '' "$call" --lines "$status" </dev/null
Expect 0 '([0-9a-f]{2} )+0a  \|'"$uptime"'\.\|' '' "$call" --hex "$status" < <(printf uptime)
Expect 0 '75 6e 6b [0-9a-f ]+  \|'"$unknown"'\.\|'$'\n''([23][0-9e] )+0a  \|'"$uptime"'\.\|' '' \
    "$call" --hex --lines "$status" < <(printf '\nuptime')
Expect 0 "$uptime" '' "$call" --interrupt "ipc://$work/interrupts" "$status" < <(printf uptime)

ms='[0-9]+\.[0-9]{3} ms'
times=("median +$ms" "99% +$ms" "worst +$ms")
Expect 0 "$(Sum "50 $few" 50 "${times[@]}")" '' "$call" --repeat 50 "$status" < <(printf uptime)
Expect 0 "$(Sum "1000 $few" 1000 "${times[@]}")" '' "$call" --repeat 1000 --parallel 8 "$status" < <(printf uptime)
Expect 0 "$(Sum "6 $few" 6 "${times[@]}")" '' "$call" --lines --repeat 2 "$status" < <(printf 'uptime\n\nuptime')
Expect 0 "$(Sum "3 $few" 3 "${times[@]}")" '' "$call" --lines --parallel 5 "$status" < <(printf 'uptime\n\nuptime')
Expect 0 "$(Sum "0 $few" 0)" '' "$call" --lines --parallel 5 "$status" </dev/null

# A reply that comes late is not taken for the next line's.
mkfifo "$work"/{requests,replies,complaints}
"$call" --lines --timeout 1000 "$status" <"$work/requests" >"$work/replies" 2>"$work/complaints" &
exec 4>"$work/requests" 5<"$work/replies" 6<"$work/complaints"
kill -STOP "$service_id"
echo meminfo >&4
Await 6 "no reply within 1000 ms: somebody listens at $work/device-status, but the service did not answer "
kill -CONT "$service_id"
echo uptime >&4
Await 5 "^$uptime$"
exec 4>&-
Expect 1 '' '' wait $!

# A reader that has gone ends it by SIGPIPE, without a word.
mkfifo "$work/closed"
exec 8<>"$work/closed"
exec 9>"$work/closed" 8<&-
ToNobody() { "$call" "$@" >&9; }
Expect 141 '' '' ToNobody --lines "$status" < <(printf 'uptime\nuptime\n')
Expect 141 '' '' ToNobody --repeat 10 --parallel 2 "$status" < <(printf uptime)
exec 9>&-

# The registration service serves although nobody reads its trace, tells how many lines it has left out, and ends.
head -c 50000 <&"$output" >"$work/trace" # of the 64 KiB that a pipe holds
[[ $(<"$work/trace") == *' <- '*' -> '* ]] || Fail "no trace"
kill -USR1 "$quillmere_id"
Await "$output" 'lines could not be written'
Await "$output" '^([0-9]+) +\1 +0 +0 +0 .* device-status '
Expect 0 "$(Sum "1000 $few" 1000 "${times[@]}")" '' "$call" --repeat 1000 --parallel 8 "$status" < <(printf uptime)
kill -HUP "$quillmere_id"
Expect 0 '' '' wait "$quillmere_id"
[[ -z $(find "$work" -type s) ]] || Fail "it leaves sockets behind"
kill -INT "$service_id"
Expect 0 '' '' wait "$service_id"
