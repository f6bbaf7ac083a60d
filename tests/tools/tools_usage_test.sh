#!/usr/bin/env bash
# What the tools refuse, and what they say of themselves.
source "$(dirname "${BASH_SOURCE[0]}")/../support/desk.sh"

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
Expect 2 '' "${said}ENDPOINT: \"greeter\" is no endpoint.* ipc:///.*" "$call" greeter
Expect 2 '' "${said}--interrupt: inproc:// .*" "$call" --interrupt inproc://stop "$status"

WithoutOutput() { "$@" >&-; }
ToFullDisk() { "$@" >/dev/full; }
Expect 1 '' "${said}standard output: Bad file descriptor" WithoutOutput "$call" "$status" </dev/null
for tool in "$call" "$quillmere"; do
    name=$(basename "$tool" .sh)
    Expect 0 "$name [0-9]+\.[0-9]+\.[0-9]+" '' "$tool" --version
    Expect 0 '.*--version.*' '' "$tool" --help
    Expect 1 '' "$name: standard output: No space left on device" ToFullDisk "$tool" --help
done
mkdir "$work/others"
Expect 0 '' '' bash -c "set -o pipefail; '$quillmere' --servers 'ipc://$work/other' --clients '$work/others' | true"
[[ ! -e $work/other ]] || Fail "a closed output leaves a socket behind"

# Only the group may connect. A user without privileges has no other than his own to give files to.
group=$(id -gn)
((EUID != 0)) || group=daemon # on each Debian
options=(--mode 0660 --group "$group")
chmod 755 "$work"
StartDesk
for name in servers .registry device-status; do
    [[ $(stat -c '%a %G' "$work/$name") == "660 $group" ]] || Fail "$(stat "$work/$name")"
    ((EUID == 0)) || continue
    ConnectAs() { setpriv --reuid "$1" --regid "$2" --clear-groups socat -u OPEN:/dev/null "UNIX-CONNECT:$work/$name"; }
    for member in 60001 60002; do Expect 0 '' '' ConnectAs "$member" daemon; done
    Expect 1 '' '.*Permission denied' ConnectAs 60003 nogroup
done

# A registration service that can't serve ends at once, and takes nothing from one that does.
plainly=()
((EUID != 0)) || plainly=(setpriv --bounding-set=-dac_override)
mkdir -m 500 "$work/locked"
Refuses() { Expect "$1" '' ".*$2.*" "${plainly[@]}" "$quillmere" --clients "${4:-$work}" --servers "$3"; }
Refuses 1 'somebody answers there' "$servers"
for endpoint in inproc://servers ipc://; do
    Refuses 2 'neither ipc://PATH nor tcp://ADDRESS:PORT' "$endpoint"
done
for port in 65536 0 5x; do Refuses 2 'no port from 1 to 65535' "tcp://127.0.0.1:$port"; done
Expect 2 '' '.*not expected: --tarce'$'\n''.*' "$quillmere" --clients "$work" --servers "ipc://$work/other" --tarce
Expect 2 '' '.*not expected: --server'$'\n''.*' "$quillmere" --clients "$work" --server "ipc://$work/other"
Expect 2 '' '.*--group requires --mode.*' "$quillmere" --clients "$work" --servers "ipc://$work/other" --group daemon
Refuses 1 'Permission denied' "ipc://$work/other" "$work/locked"
[[ ! -e $work/other ]] || Fail "a refused start leaves a socket behind"
Expect 0 "$uptime" '' "$call" "$status" < <(printf uptime)
