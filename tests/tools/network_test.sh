#!/usr/bin/env bash
# Puts the registration service and a service on two machines, which are network namespaces, and breaks the link between
# them: network_test.sh TOLVO-QUILLMERE TOLVO-IPC-CALL DEVICE-STATUS-SERVICE. Exits with 77 where none can be made.
set -euo pipefail

quillmere=$1 call=$2 service=$3
readonly registry=tolvo-r$$ device=tolvo-d$$ host=10.0.0.1 port=5555
folder=$(mktemp -d)
CleanUp()
{
    local id namespace
    for id in $(jobs -pr); do kill -KILL "$id" 2>/dev/null || true; done
    wait 2>/dev/null || true
    for namespace in "$registry" "$device"; do ip netns delete "$namespace" 2>/dev/null || true; done
    rm -rf "$folder"
}
trap CleanUp EXIT

Fail() { printf 'failed: %s\n' "$*" >&2; exit 1; }
Skip() { printf 'Skipped: %s\n' "$*"; exit 77; }

# Await PATTERN: the next line of the registration service that matches.
Await()
{
    local line
    while read -r -t 20 line <&3; do
        printf '%s\n' "$line"
        [[ ! $line =~ $1 ]] || return 0
    done
    Fail "no line with $1"
}

ExpectUptime()
{
    local reply
    reply=$(printf uptime | "$@") || Fail "$*: no reply"
    [[ $reply =~ ^[0-9.]+\ [0-9.]+$ ]] || Fail "$*: '$reply'"
}

command -v ip >/dev/null || Skip "no iproute2"
command -v socat >/dev/null || Skip "no socat"
for namespace in "$registry" "$device"; do
    { ip netns add "$namespace" && ip -n "$namespace" link set lo up && ip netns exec "$namespace" true; } \
        2>"$folder/refusal" || Skip "no network namespace: $(<"$folder/refusal")"
done
ip link add wire netns "$registry" type veth peer name wire netns "$device" 2>"$folder/refusal" ||
    Skip "no pair of interfaces: $(<"$folder/refusal")"
ip -n "$registry" address add "$host/24" dev wire
ip -n "$device" address add 10.0.0.2/24 dev wire
for namespace in "$registry" "$device"; do ip -n "$namespace" link set wire up; done

mkfifo "$folder"/{log,socat.log}
ip netns exec "$registry" "$quillmere" --servers "tcp://$host:$port" --clients "$folder" >"$folder/log" 2>&1 &
exec 3<"$folder/log"
Await serving
ip netns exec "$device" "$service" --servers "tcp://$host:$port" >"$folder/service.log" 2>&1 &
service_id=$!
Await 'registered as "device-status"'
ExpectUptime "$call" "ipc://$folder/device-status"

# The address from the other machine, through a relay in front of its socket file.
ip netns exec "$registry" socat -d -d "TCP-LISTEN:$((port + 1)),fork" "UNIX-CONNECT:$folder/device-status" \
    >"$folder/socat.log" 2>&1 &
exec 4<"$folder/socat.log"
read -r -t 10 line <&4 || Fail "socat says nothing"
[[ $line == *listening* ]] || Fail "socat: $line"
ExpectUptime ip netns exec "$device" "$call" "tcp://$host:$((port + 1))"

# Five seconds without the link: longer than it takes both sides to give the connection up.
ip -n "$registry" link set wire down
for ((second = 1; second <= 5; ++second)); do
    if printf uptime | "$call" --timeout 1000 "ipc://$folder/device-status" 2>"$folder/complaint"; then
        Fail "an answer without a link"
    fi
    grep -q 'no reply within 1000 ms' "$folder/complaint" || Fail "$(<"$folder/complaint")"
done
ip -n "$registry" link set wire up
Await 'registered as "device-status"'
ExpectUptime "$call" "ipc://$folder/device-status"

kill -INT "$service_id"
wait "$service_id"
