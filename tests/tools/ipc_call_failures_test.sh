#!/usr/bin/env bash
# tolvo-ipc-call says in words why a request has failed.
source "$(dirname "${BASH_SOURCE[0]}")/../support/desk.sh"

interrupts=ipc://$work/interrupts malformed=tcp://nowhere late="no reply within 50 ms"
missing="there is no socket file $work/nobody"

for log in 0 emergency critical 2; do
    Expect 1 '' "${failed}Invalid argument" "$call" --log "$log" "$malformed" </dev/null
done
for log in 3 error debug 7; do
    Expect 1 '' '\[[0-9]+\]\[.* Failed to connect .*'"${failed}Invalid argument" \
        "$call" --log "$log" "$malformed" </dev/null
done
Expect 1 "$(Sum "7 $few" 0 'failed +7: Invalid argument')" '' "$call" --repeat 7 --parallel 2 "$malformed" </dev/null

# Why there is no reply. A privileged user may write everywhere, unless he does without.
StartDesk
plainly=()
((EUID != 0)) || plainly=(setpriv "--bounding-set=-dac_override,-dac_read_search")
chmod 0 "$work/device-status"
Expect 1 '' "$failed$late: not allowed to write to $work/device-status" \
    "${plainly[@]}" "$call" --timeout 50 "$status" </dev/null
kill -KILL "$quillmere_id"
wait "$quillmere_id" 2>/dev/null || true
Expect 1 '' "$failed$late: nobody listens at $work/device-status" "$call" --timeout 50 "$status" </dev/null
Expect 1 '' "$failed$late: $work is no socket" "$call" --timeout 50 "ipc://$work" </dev/null
Expect 1 '' "$failed$late: nobody listens at 127.0.0.1:1" "$call" --timeout 50 tcp://127.0.0.1:1 </dev/null
Expect 1 '' "$failed$late: $missing"$'\n'"$failed$late" "$call" --lines --timeout 50 "$nobody" < <(printf 'a\nb\n')

# The dealer client. It doesn't wait at its end; twenty callers at once wait one second, not twenty.
Expect 1 '' "$failed$late: $missing" timeout 20 "$call" --timeout 50 --interrupt "$interrupts" "$nobody" </dev/null
Expect 1 "$(Sum '20 in [1-9]\.[0-9]+ s, [0-9]+' 0 "failed +20: no reply within 1000 ms: $missing")" '' \
    "$call" --repeat 20 --parallel 20 --timeout 1000 --interrupt "$interrupts" "$nobody" </dev/null
mkfifo "$work/keys"
"$4" --publish "$interrupts" <>"$work/keys" &
Expect 1 '' "${failed}interrupted by a message" "$call" --timeout 10000 --interrupt "$interrupts" "$nobody" </dev/null
Expect 1 "$(Sum "4 $few" 0 'failed +4: interrupted by a message')" '' \
    "$call" --repeat 4 --timeout 10000 --interrupt "$interrupts" "$nobody" </dev/null
kill -TERM "$!"
Expect 0 '' '' wait "$!"
