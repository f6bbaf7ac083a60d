# shellcheck shell=bash
# What the shell tests of the tools share. Their arguments are the programs: TOLVO-QUILLMERE TOLVO-IPC-CALL
# DEVICE-STATUS-SERVICE INTERRUPTIBLE-CALLER
# shellcheck disable=SC2034 # the tests use what is set here
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib/common.sh"

quillmere=$1 call=$2 service=$3
MakeWorkFolder
servers=ipc://$work/servers status=ipc://$work/device-status nobody=ipc://$work/nobody
uptime='[0-9.]+ [0-9.]+' unknown='unknown request; ask for one of: uptime loadavg meminfo cpuinfo'
said='tolvo-ipc-call: ' failed='tolvo-ipc-call: the request failed: '

# The registration service, $quillmere_id, with what is in $options, which writes to $output, and the device status
# service, $service_id.
options=()
StartDesk()
{
    Launch serving "$quillmere" --servers "$servers" --clients "$work" "${options[@]}"
    quillmere_id=$!
    "$service" "$servers" >"$work/service.log" 2>&1 &
    service_id=$!
    Await "$output" 'registered as "device-status"'
}

# Expect CODE OUTPUT COMPLAINT COMMAND...: what the command exits with, writes and says, the texts as patterns.
Expect()
{
    local code=0 out err
    "${@:4}" >"$work/out" 2>"$work/err" || code=$?
    out=$(<"$work/out") err=$(<"$work/err")
    [[ $code == "$1" && $out =~ ^$2$ && $err =~ ^$3$ ]] || Fail "${*:4}: exit code $code, output '$out', '$err'"
}

# Sum REQUESTS ANSWERED LINE...: the pattern of a summary. $few is what stands behind the number of requests.
Sum()
{
    printf 'requests +%s per second\nanswered +%s' "$1" "$2"
    printf '\n%s' "${@:3}"
}
few='in [0-9.]+ s, [0-9]+'
