#!/usr/bin/env bash
# What one request costs in instructions and in heap allocations, by valgrind's callgrind, with the library and with plain
# ZeroMQ; fails when the library takes more than its bounds.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

scripts/setup.sh bench
scripts/build.sh release per-request
readonly program=build/release/bench/per-request
readonly patience=50 # seconds that a run which works never needs
readonly few=1000 many=5000 # requests: the difference holds nothing of start and stop

MakeWorkFolder
readonly endpoint=ipc://$work/endpoint

# On one processor the threads of a process take turns in much the same way each time, and so in the same number of
# polls.
processor=$(taskset -cp $$ | sed -E 's/.*: ([0-9]+).*/\1/')
taskset -cp "$processor" $$ >/dev/null

# RunSide SIDE WAY COUNT BYTES: under callgrind, opposite a plain peer in a process of its own. What fails ends it: "set -e"
# does nothing in a command whose result is looked at.
RunSide()
{
    local side=$1 way=$2 count=$3 bytes=$4
    local command=(timeout "$patience" valgrind --tool=callgrind --compress-strings=no
        --callgrind-out-file="$work/calls" "$program" "$way-$side" "$endpoint" "$count" "$bytes")
    if [[ $side == server ]]; then
        timeout "$patience" "$program" caller "$endpoint" "$count" "$bytes" &
        "${command[@]}" || return
        wait "$!"
    else
        mkfifo "$work/end"
        timeout "$patience" "$program" echo "$endpoint" 0 0 <"$work/end" &
        exec {end}>"$work/end"
        "${command[@]}" || return
        exec {end}>&-
        wait "$!" || return
        rm "$work/end"
    fi
}

# Instructions, allocations by ZeroMQ, all other allocations. What "operator new" gets from malloc is no further one.
Count()
{
    RunSide "$@" 2>"$work/log" || {
        cat "$work/log" >&2
        return 1
    }
    awk -F= '
        function IsAllocation(name) { return name ~ /^(malloc|calloc|realloc|posix_memalign|operator new.*)$/ }
        /^ob=/ { object = $2 }
        /^fn=/ { caller = $2 }
        /^cfn=/ { callee = $2 }
        /^calls=/ && IsAllocation(callee) && !IsAllocation(caller) { n[object ~ /libzmq/] += $2 }
        /^summary: / { instructions = substr($0, 10) }
        END { print instructions, n[1] + 0, n[0] + 0 }' "$work/calls"
}

# The cost of one request: what further ones add, divided by their number.
PerRequest()
{
    local less more
    less=$(Count "$1" "$2" "$few" "$3") || return
    more=$(Count "$1" "$2" "$many" "$3") || return
    awk -v n="$((many - few))" 'NF != 6 || $3 == 0 || $6 == 0 { exit 1 }
        { figures = sprintf("%.0f %.2f %.2f", ($4 - $1) / n, ($5 - $2) / n, ($6 - $3) / n)
          gsub("-0.00", "0.00", figures); print figures }' <<<"$less $more"
}

missed=0
Check() # NAME VALUE BOUND
{
    if awk -v value="$2" -v bound="$3" 'BEGIN { exit !(value > bound) }'; then
        printf 'missed: %s: %s, bound %s\n' "$1" "$2" "$3"
        missed=1
    fi
}

# ZeroMQ's own allocations differ a little from run to run: some come once in a while.
declare -A bound=([server]=2 [client]=0)
printf '%-6s %5s  %-20s %8s %8s\n' side bytes "for each request" plain library
for side in server client; do
    for bytes in 16 4096; do
        counted=$(PerRequest "$side" plain "$bytes" && PerRequest "$side" library "$bytes")
        read -r plain plain_zmq plain_others library library_zmq library_others <<<"${counted//$'\n'/ }"
        printf '%-6s %5d  %-20s %8s %8s\n' "$side" "$bytes" instructions "$plain" "$library" \
            "$side" "$bytes" "ZeroMQ's allocations" "$plain_zmq" "$library_zmq" \
            "$side" "$bytes" "other allocations" "$plain_others" "$library_others"
        Check "instructions of the $side" "$library" "$(awk -v plain="$plain" 'BEGIN { print 1.05 * plain }')"
        Check "allocations of the $side beyond ZeroMQ's" "$library_others" "${bound[$side]}"
    done
done
[[ $missed == 0 ]]
