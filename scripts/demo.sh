#!/usr/bin/env bash
# Builds the library and shows it at work: a registration service, a service and its clients as separate processes,
# then the other examples. Leaves no process and no file behind but the build folder, also when it is interrupted.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

readonly build=$PWD/build/release
readonly patience=10 # seconds that a step which works never needs

Title() { printf '\n== %s\n\n' "$1"; }

# Starts a command in a process group of its own, so that whatever it starts can be ended with it.
Start()
{
    set -m
    "$@" 2>>"$work/log" &
    set +m
}

# As a job that is waited for: a signal then ends the wait at once.
Run()
{
    Start "$@"
    wait "$!"
}

# Starts a service and awaits the line with which it says that it is ready.
StartService()
{
    local name=$1 output="$work/$1.output" line
    mkfifo "$output"
    Start Redirect "$output" "${@:2}"
    services[$name]=$!
    exec {ready}<"$output" # stays open: the service may print more
    read -r -t "$patience" -u "$ready" line || Fail "the $name service did not start"
    printf '%s\n' "$line"
}

Redirect() { exec "${@:2}" >"$1"; }

# Every process that was started, and whatever it started in turn, holds the pipe "alive" open: once the script has
# closed its own end, the pipe ends with the last of them. Call it where its result is looked at: "set -e" would end it.
StopEverything()
{
    local signal id
    [[ -n ${alive:-} ]] || return 0
    exec {alive}>&-
    for signal in TERM KILL; do
        for id in $(jobs -pr); do kill "-$signal" -- "-$id" 2>/dev/null || true; done
        read -r -t "$patience" -u "$watch"
        if (($? == 1)); then return 0; fi # the end of the pipe; more than 128 when the time is over
        printf 'demo: something did not end on SIG%s\n' "$signal" >&2
    done
    return 1
}

CleanUp()
{
    local status=$?
    trap '' INT TERM HUP
    StopEverything || status=1
    if ((status && ! is_interrupted)); then cat "$work/log" >&2; fi
    cd /
    rm -rf "$work"
    if ((is_interrupted)); then Fail "interrupted; everything is stopped and removed" "$status"; fi
    ((status == 0)) || Fail "failed with exit code $status" "$status"
}

Interrupt() { is_interrupted=1; exit "$((128 + $1))"; }

Ask()
{
    local request=$1 lines=${2:-2}
    printf "\$ printf '%s' | tolvo-ipc-call ipc://clients/device-status\n" "$request"
    printf '%s' "$request" >request
    Run "$call" --timeout "$((patience * 1000))" ipc://clients/device-status <request >answer
    sed -e "${lines}q" answer | cut -c -79
    if (($(wc -l <answer) > lines)); then printf '... (%d lines)\n' "$(wc -l <answer)"; fi
    printf '\n'
}

scripts/setup.sh build
exec </dev/null
is_interrupted=0
MakeWorkFolder
trap 'Interrupt 1' HUP
trap 'Interrupt 2' INT
trap 'Interrupt 15' TERM
: >"$work/log"
mkfifo "$work/alive"
exec {both}<>"$work/alive" # opens without waiting for another end
exec {watch}<"$work/alive"
exec {alive}>"$work/alive"
exec {both}>&-

Title "Building in build/release"
Run cmake --preset release >>"$work/log"
Run cmake --build --preset release --target tolvo-quillmere tolvo-ipc-call device_status_service alarm_service \
    interruptible_caller event_loop hello_service hello_client >>"$work/log"
: >"$work/log"
quillmere=$build/tools/quillmere/tolvo-quillmere
call=$build/tools/ipc-call/tolvo-ipc-call
examples=$build/examples
printf 'done\n'

Title "A registration service and two services, in $work"
cd "$work"
mkdir clients
declare -A services=()
StartService registration "$quillmere" --servers ipc://servers --clients clients
StartService device-status "$examples/device_status_service" ipc://servers
StartService spare "$examples/device_status_service" ipc://servers spare

Title "Requests and their answers"
Ask uptime
Ask loadavg
Ask meminfo 4
Ask cpuinfo 5
Ask no-such-thing

Title "alarm_service: what a second, urgent front-end buys"
Run "$examples/alarm_service" ipc://servers clients

Title "interruptible_caller: a wait ended from outside"
Run "$examples/interruptible_caller" ipc://interrupts
rm interrupts # ZeroMQ leaves it

Title "event_loop: a timer, standard input and two services in one poll loop"
echo loadavg >request
Run "$examples/event_loop" ipc://clients/device-status ipc://clients/spare <request

Title "Stopping"
StopEverything || Fail "a process was left"
for name in "${!services[@]}"; do
    wait "${services[$name]}" || Fail "the $name service ended with exit code $?"
    printf 'the %s service ended with exit code 0\n' "$name"
done
sockets=$(find . -type s)
[[ -z $sockets ]] || Fail "sockets were left: $sockets"
cd /
rm -rf "$work"
[[ ! -e $work ]] || Fail "$work was left"
printf 'no process of this demonstration is left, and no socket or folder\n'
