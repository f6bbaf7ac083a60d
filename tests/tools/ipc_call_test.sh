#!/usr/bin/env bash
# Runs tolvo-ipc-call opposite the registration service and the device status example.
set -euo pipefail

quillmere=$1 call=$2 service=$3 interrupter=$4
folder=$(mktemp -d)
CleanUp()
{
    local id
    for id in $(jobs -pr); do kill -KILL "$id" 2>/dev/null || true; done
    rm -rf "$folder"
}
trap CleanUp EXIT

Fail() { printf 'failed: %s\n' "$*" >&2; exit 1; }

# Await DESCRIPTOR PATTERN
Await() {
    local line
    while read -r -t 10 line <&"$1"; do [[ ! $line =~ $2 ]] || return 0; done
    Fail "no line with $2"
}

# Expect CODE OUTPUT COMPLAINT COMMAND...: what the command exits with, writes and says, the texts as patterns.
Expect() {
    local code=0 out err
    "${@:4}" >"$folder/out" 2>"$folder/err" || code=$?
    out=$(<"$folder/out") err=$(<"$folder/err")
    [[ $code == "$1" && $out =~ ^$2$ && $err =~ ^$3$ ]] || Fail "${*:4}: exit code $code, output '$out', '$err'"
}

mkfifo "$folder"/{log,requests,replies,complaints,keys,screen}
"$quillmere" --servers "ipc://$folder/servers" --clients "$folder" >"$folder/log" 2>&1 &
exec 3<"$folder/log"
Await 3 serving
"$service" --servers "ipc://$folder/servers" >"$folder/service.log" 2>&1 &
service_id=$!
Await 3 'registered as "device-status"'

status=ipc://$folder/device-status
nobody=ipc://$folder/nobody interrupts=ipc://$folder/interrupts
unknown='unknown request; [a-z :]+' uptime='[0-9.]+ [0-9.]+' said='tolvo-ipc-call: '
failed="${said}the request failed: "
Expect 0 "$uptime" '' "$call" "$status" < <(printf uptime)
Expect 0 "$unknown" '' "$call" "$status" < <(printf 'uptime\n')
Expect 0 "$unknown" '' "$call" "$status" < <(printf 'uptime\0')
Expect 0 "$unknown" '' "$call" "$status" </dev/null
Expect 0 "$uptime"$'\n\n'"$unknown"$'\n\n'"$uptime" '' "$call" --lines "$status" < <(printf 'uptime\n\nuptime')
Expect 0 '' '' "$call" --lines "$status" </dev/null
Expect 0 '([0-9a-f]{2} )+0a  \|'"$uptime"'\.\|' '' "$call" --hex "$status" < <(printf uptime)
Expect 0 '75 6e 6b [0-9a-f ]+  \|'"$unknown"'\.\|'$'\n''([23][0-9e] )+0a  \|'"$uptime"'\.\|' '' \
    "$call" --hex --lines "$status" < <(printf '\nuptime')
Expect 1 '' "${failed}no reply within 50 ms" "$call" --timeout 50 "$nobody" </dev/null
for log in 0 emergency critical 2; do
    Expect 1 '' "${failed}Invalid argument" "$call" --log "$log" nowhere </dev/null
done
for log in 3 error debug 7; do
    Expect 1 '' '\[[0-9]+\]\[.* Failed to connect .*'"${failed}Invalid argument" "$call" --log "$log" nowhere </dev/null
done

# Sums instead of replies.
# Sum REQUESTS ANSWERED LINE...: the pattern of a summary.
Sum() {
    printf 'requests +%s per second\nanswered +%s' "$1" "$2"
    printf '\n%s' "${@:3}"
}
few='in [0-9.]+ s, [0-9]+' ms='[0-9]+\.[0-9]{3} ms'
times=("median +$ms" "99% +$ms" "worst +$ms")
Expect 0 "$(Sum "50 $few" 50 "${times[@]}")" '' "$call" --repeat 50 "$status" < <(printf uptime)
Expect 0 "$(Sum "500 $few" 500 "${times[@]}")" '' "$call" --repeat 500 --parallel 8 "$status" < <(printf uptime)
Expect 0 "$(Sum "6 $few" 6 "${times[@]}")" '' "$call" --lines --repeat 2 "$status" < <(printf 'uptime\n\nuptime')
Expect 0 "$(Sum "3 $few" 3 "${times[@]}")" '' "$call" --lines --parallel 5 "$status" < <(printf 'uptime\n\nuptime')
Expect 0 "$(Sum "0 $few" 0)" '' "$call" --lines --parallel 5 "$status" </dev/null
Expect 1 "$(Sum "7 $few" 0 'failed +7: Invalid argument')" '' "$call" --repeat 7 --parallel 2 nowhere </dev/null

# The interruptible client. It doesn't wait at its end; twenty callers at once wait one second, not twenty.
Expect 0 "$uptime" '' "$call" --interrupt "$interrupts" "$status" < <(printf uptime)
Expect 1 '' "${failed}no reply within 50 ms" timeout 20 "$call" --timeout 50 --interrupt "$interrupts" "$nobody" </dev/null
Expect 1 "$(Sum '20 in [1-9]\.[0-9]+ s, [0-9]+' 0 'failed +20: no reply within 1000 ms')" '' \
    "$call" --repeat 20 --parallel 20 --timeout 1000 --interrupt "$interrupts" "$nobody" </dev/null
"$interrupter" --publish "$interrupts" <>"$folder/keys" &
interrupter_id=$!
Expect 1 '' "${failed}interrupted by a message" "$call" --timeout 10000 --interrupt "$interrupts" "$nobody" </dev/null
Expect 1 "$(Sum "4 $few" 0 'failed +4: interrupted by a message')" '' \
    "$call" --repeat 4 --timeout 10000 --interrupt "$interrupts" "$nobody" </dev/null
kill -TERM "$interrupter_id"
Expect 0 '' '' wait "$interrupter_id"

Expect 2 '' "${said}ENDPOINT is required.*" "$call"
Expect 2 '' "${said}.*more.*" "$call" "$status" more
Expect 2 '' "${said}.*soon.*" "$call" --timeout soon "$status"
Expect 2 '' "${said}.*-2.*" "$call" --timeout -2 "$status"
Expect 2 '' "${said}--repeat: .* 0 .*" "$call" --repeat 0 "$status"
Expect 2 '' "${said}--parallel: .* 101 .*" "$call" --repeat 2 --parallel 101 "$status"
Expect 2 '' "${said}--parallel: .*--repeat or --lines.*" "$call" --parallel 2 "$status"
Expect 2 '' "${said}--hex excludes --repeat.*" "$call" --hex --repeat 2 "$status"
Expect 2 '' "${said}--hex excludes --parallel.*" "$call" --lines --hex --parallel 2 "$status"
Expect 2 '' "${said}--log: \"loud\" is no level: .*" "$call" --log loud "$status"
Expect 2 '' "${said}--log: \"8\" is no level: .*" "$call" --log 8 "$status"
WithoutOutput() { "$call" "$@" >&-; }
Expect 1 '' "${said}standard output: Bad file descriptor" WithoutOutput "$status" </dev/null

for tool in "$call" "$quillmere"; do
    Expect 0 'tolvo-[a-z-]+ [0-9]+\.[0-9]+\.[0-9]+' '' "$tool" --version
    Expect 0 '.*Usage: .*' '' "$tool" --help
    wide=$(awk 'length($0) > 80' "$folder/out")
    [[ -z $wide ]] || Fail "more than 80 columns: $wide"
done
Expect 0 '' '' bash -c "set -o pipefail; '$quillmere' --servers 'ipc://$folder/other' --clients '$folder' | true"
[[ ! -e $folder/other ]] || Fail "a closed output leaves a socket behind"

# A reader that has gone ends it by SIGPIPE, without a word.
exec 8<>"$folder/replies"
exec 9>"$folder/replies" 8<&-
ToNobody() { "$call" "$@" >&9; }
Expect 141 '' '' ToNobody --lines "$status" < <(printf 'uptime\nuptime\n')
Expect 141 '' '' ToNobody --repeat 10 --parallel 2 "$status" < <(printf uptime)
exec 9>&-

# A reply that comes late is not taken for the next line's.
"$call" --lines --timeout 1000 "$status" <"$folder/requests" >"$folder/replies" 2>"$folder/complaints" &
exec 4>"$folder/requests" 5<"$folder/replies" 6<"$folder/complaints"
kill -STOP "$service_id"
echo meminfo >&4
Await 6 'no reply within 1000 ms'
kill -CONT "$service_id"
echo uptime >&4
read -r -t 10 reply <&5
[[ $reply =~ ^$uptime$ ]] || Fail "the reply to uptime is '$reply'"
exec 4>&-
Expect 1 '' '' wait $!

# Rendered COLUMNS: what a terminal shows in the end, without trailing spaces. Fails on a line of more than 80 columns
# and on an overwritten one that the terminal would have to wrap.
Rendered() {
    awk -v columns="$1" '{
        sub(/\r$/, "")
        line = ""
        last = split($0, parts, "\r")
        for (i = last; i > 0; --i) {
            if (length(parts[i]) > 80 || i < last && length(parts[i]) >= columns) exit 1
            line = line substr(parts[i], length(line) + 1)
        }
        sub(/ +$/, "", line)
        print line
    }'
}

# On a terminal, progress is one line that overwrites itself and goes when Ctrl-C asks for the summary.
for columns in 80 30; do
    script -qec "stty cols $columns; exec '$call' --repeat 9 --timeout 200 --interrupt '$interrupts' '$nobody' </dev/null" \
        /dev/null <"$folder/keys" >"$folder/screen" &
    exec 8>"$folder/keys" 9<"$folder/screen"
    shown=''
    for pattern in '^$' '^[1-9][0-9]%: [1-8] of 9, [1-8] failed, ' '^[1-9][0-9]%: '; do
        IFS= read -r -d $'\r' -t 10 -u 9 text || Fail "no progress after '$shown'"
        [[ $text =~ $pattern ]] || Fail "progress is '$text', not '$pattern'"
        shown+=$text$'\r'
    done
    printf '\003' >&8
    shown+=$(cat <&9)
    left=$(Rendered "$columns" <<<"$shown") || Fail "a line doesn't fit $columns columns: '$shown'"
    [[ $left =~ ^$(Sum "[1-8] of 9 $few" 0 'failed +[1-8]: no reply within 200 ms')$ ]] || Fail "left on the screen: '$left'"
    Expect 130 '' '' wait $!
    exec 8>&- 9<&-
done

kill -INT "$service_id"
Expect 0 '' '' wait "$service_id"
