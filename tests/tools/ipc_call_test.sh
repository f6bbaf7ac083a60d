#!/usr/bin/env bash
# Runs tolvo-ipc-call opposite the registration service and the device status example.
set -euo pipefail

quillmere=$1 call=$2 service=$3
folder=$(mktemp -d)
trap 'jobs -pr | xargs -r kill -KILL; rm -rf "$folder"' EXIT

fail() { printf 'failed: %s\n' "$*" >&2; exit 1; }

# await DESCRIPTOR PATTERN
await() {
    local line
    while read -r -t 10 line <&"$1"; do [[ ! $line =~ $2 ]] || return 0; done
    fail "no line with $2"
}

# expect CODE OUTPUT COMPLAINT COMMAND...: what the command exits with, writes and says, the texts as patterns.
expect() {
    local code=0 out err
    "${@:4}" >"$folder/out" 2>"$folder/err" || code=$?
    out=$(<"$folder/out") err=$(<"$folder/err")
    [[ $code == "$1" && $out =~ ^$2$ && $err =~ ^$3$ ]] || fail "${*:4}: exit code $code, output '$out', '$err'"
}

mkfifo "$folder"/{log,requests,replies,complaints}
"$quillmere" --servers "ipc://$folder/servers" --clients "$folder" >"$folder/log" 2>&1 &
exec 3<"$folder/log"
await 3 serving
"$service" --servers "ipc://$folder/servers" >"$folder/service.log" 2>&1 &
service_id=$!
await 3 'registered as "device-status"'

status=ipc://$folder/device-status
unknown='unknown request; [a-z :]+' uptime='[0-9.]+ [0-9.]+' said='tolvo-ipc-call: '
expect 0 "$uptime" '' "$call" "$status" < <(printf uptime)
expect 0 "$unknown" '' "$call" "$status" < <(printf 'uptime\n')
expect 0 "$unknown" '' "$call" "$status" < <(printf 'uptime\0')
expect 0 "$unknown" '' "$call" "$status" </dev/null
expect 0 "$uptime"$'\n\n'"$unknown"$'\n\n'"$uptime" '' "$call" --lines "$status" < <(printf 'uptime\n\nuptime')
expect 0 '' '' "$call" --lines "$status" </dev/null
expect 1 '' "${said}no reply within 50 ms" "$call" --timeout 50 "ipc://$folder/nobody" </dev/null
expect 1 '' "${said}the request failed: Invalid argument" "$call" nowhere </dev/null
expect 2 '' "${said}ENDPOINT is required.*" "$call"
expect 2 '' "${said}.*more.*" "$call" "$status" more
expect 2 '' "${said}.*soon.*" "$call" --timeout soon "$status"
expect 2 '' "${said}.*-2.*" "$call" --timeout -2 "$status"
without_output() { "$call" "$@" >&-; }
expect 1 '' "${said}standard output: Bad file descriptor" without_output "$status" </dev/null

# A reply that comes late is not taken for the next line's.
"$call" --lines --timeout 1000 "$status" <"$folder/requests" >"$folder/replies" 2>"$folder/complaints" &
exec 4>"$folder/requests" 5<"$folder/replies" 6<"$folder/complaints"
kill -STOP "$service_id"
echo meminfo >&4
await 6 'no reply within 1000 ms'
kill -CONT "$service_id"
echo uptime >&4
read -r -t 10 reply <&5
[[ $reply =~ ^$uptime$ ]] || fail "the reply to uptime is '$reply'"
exec 4>&-
expect 1 '' '' wait $!

kill -INT "$service_id"
expect 0 '' '' wait "$service_id"
