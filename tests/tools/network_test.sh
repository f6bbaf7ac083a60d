#!/usr/bin/env bash
# Puts the registration service and a service on two machines, which are network namespaces, and breaks the link between
# them. Exits with 77 where there can be none.
source "$(dirname "${BASH_SOURCE[0]}")/../support/desk.sh"

Skip() { Fail "skipped: $1" 77; }

# The registration service's machine; what is mounted there goes away with it.
if [[ ${*: -1} != apart ]]; then
    apart=(unshare --mount --net)
    ((EUID == 0)) || apart+=(--map-root-user)
    refusal=$("${apart[@]}" mount -t tmpfs none /run 2>&1) || Skip "$refusal"
    "${apart[@]}" bash "$0" "$@" apart
    exit
fi
mount -t tmpfs none /run
command -v ip >/dev/null || Skip "no iproute2"
command -v socat >/dev/null || Skip "no socat"
refusal=$(ip netns add device 2>&1 && ip netns exec device true 2>&1 &&
    ip link add wire type veth peer name wire netns device 2>&1) || Skip "$refusal"

readonly host=10.0.0.1 port=5555
ip address add "$host/24" dev wire
ip link set wire up
ip link set lo up
ip -n device address add 10.0.0.2/24 dev wire
ip -n device link set wire up

Launch serving "$quillmere" --servers "tcp://$host:$port" --clients "$work"
log=$output
ip netns exec device "$service" "tcp://$host:$port" >"$work/service.log" 2>&1 &
service_id=$!
Await "$log" 'registered as "device-status"'
Expect 0 "$uptime" '' "$call" "$status" < <(printf uptime)

# The address from the other machine, through a relay in front of its socket file.
Launch listening socat -d -d "TCP-LISTEN:$((port + 1)),fork" "UNIX-CONNECT:$work/device-status"
Expect 0 "$uptime" '' ip netns exec device "$call" "tcp://$host:$((port + 1))" < <(printf uptime)

# Five seconds without the link: longer than it takes both sides to give the connection up.
ip link set wire down
for ((second = 1; second <= 5; ++second)); do
    Expect 1 '' "${failed}no reply within 1000 ms: somebody .*" "$call" --timeout 1000 "$status" < <(printf uptime)
done
ip link set wire up
Await "$log" 'registered as "device-status"'
Expect 0 "$uptime" '' "$call" "$status" < <(printf uptime)

kill -INT "$service_id"
wait "$service_id"
