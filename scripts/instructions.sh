#!/usr/bin/env bash
# What one request costs in instructions (valgrind's callgrind) and in heap allocations, with the library and with plain
# ZeroMQ; fails when the library takes more than its bounds: instructions.sh [BUILD-FOLDER]
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

build=${1:-}
if [[ -z $build ]]; then
    scripts/setup.sh bench
    scripts/build.sh release per-request count-allocations
    build=build/release
fi
readonly program=$build/bench/per-request
readonly counter=$build/bench/libcount-allocations.so
readonly patience=50 # seconds that a run which works never needs
readonly few=1000 many=5000 # requests: the difference holds nothing of start and stop

MakeWorkFolder
readonly endpoint=ipc://$work/endpoint

# On one processor the threads of a process take turns in much the same way each time, and so in the same number of
# polls.
processor=$(taskset -cp $$ | sed -E 's/.*: ([0-9]+).*/\1/')
taskset -cp "$processor" $$ >/dev/null

# Runs one side under the given command, opposite a plain peer in a process of its own. What fails ends it: "set -e" does
# nothing in a command whose result is looked at.
RunSide()
{
    local side=$1 way=$2 count=$3 bytes=$4
    shift 4
    if [[ $side == server ]]; then
        timeout "$patience" "$program" caller "$endpoint" "$count" "$bytes" &
        timeout "$patience" "$@" "$program" "$way-server" "$endpoint" "$count" "$bytes" || return
        wait "$!"
    else
        mkfifo "$work/end"
        timeout "$patience" "$program" echo "$endpoint" 0 0 <"$work/end" &
        exec {end}>"$work/end"
        timeout "$patience" "$@" "$program" "$way-client" "$endpoint" "$count" "$bytes" || return
        exec {end}>&-
        wait "$!" || return
        rm "$work/end"
    fi
}

Instructions()
{
    RunSide "$@" valgrind --tool=callgrind --callgrind-out-file="$work/calls" 2>"$work/log" || {
        cat "$work/log" >&2
        return 1
    }
    sed -n 's/^summary: //p' "$work/calls"
}

# ZeroMQ's own, then all others.
Allocations()
{
    RunSide "$@" env LD_PRELOAD="$PWD/$counter" TOLVO_ALLOCATIONS="$work/allocations" || return
    cat "$work/allocations"
}

# The cost of one request: what further ones add, divided by their number.
PerRequest()
{
    local measure=$1 side=$2 way=$3 bytes=$4 less more
    less=$("$measure" "$side" "$way" "$few" "$bytes") || return
    more=$("$measure" "$side" "$way" "$many" "$bytes") || return
    awk -v n="$((many - few))" 'NF == 0 || NF % 2 { exit 1 }
                        { for (i = 1; i <= NF / 2; ++i) $i = sprintf("%.2f", ($(i + NF / 2) - $i) / n)
                          NF /= 2; gsub("-0.00", "0.00"); print }' \
        <<<"$less $more"
}

missed=0
Check() # NAME VALUE BOUND
{
    if awk -v value="$2" -v bound="$3" 'BEGIN { exit !(value > bound) }'; then
        printf 'missed: %s: %s, bound %s\n' "$1" "$2" "$3"
        missed=1
    fi
}

printf '%-8s %6s %14s %9s %9s %7s\n' "" bytes "per request" plain library ratio
for side in server client; do
    plain=$(PerRequest Instructions "$side" plain 16)
    library=$(PerRequest Instructions "$side" library 16)
    ratio=$(awk -v a="$library" -v b="$plain" 'BEGIN { printf "%.3f", a / b }')
    printf '%-8s %6d %14s %9.0f %9.0f %7s\n' "$side" 16 instructions "$plain" "$library" "$ratio"
    Check "instructions of the $side" "$ratio" 1.05
done

# Told apart by the caller of each allocation. ZeroMQ's own differ a little from run to run: some come once in a while.
declare -A bound=([server]=2 [client]=0)
for side in server client; do
    for bytes in 16 4096; do
        read -r plain_zmq plain < <(PerRequest Allocations "$side" plain "$bytes")
        read -r library_zmq library < <(PerRequest Allocations "$side" library "$bytes")
        printf '%-8s %6d %14s %9s %9s\n' "$side" "$bytes" "ZeroMQ's" "$plain_zmq" "$library_zmq"
        printf '%-8s %6d %14s %9s %9s\n' "$side" "$bytes" "others'" "$plain" "$library"
        Check "allocations of the $side beyond ZeroMQ's" "$library" "${bound[$side]}"
    done
done
[[ $missed == 0 ]]
