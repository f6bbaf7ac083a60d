#!/usr/bin/env bash
# Measures the library against plain ZeroMQ and prints two tables; leaves the results and a plot in build/release/bench.
# bench.sh [--check] [CASES [SHARE]]: with --check it fails when a bound is missed by more than the machine's noise. CASES
# is a regular expression, SHARE what to run of each case's rounds: bench.sh '^server/ipc/(16|4096)$' 0.2
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

check=
if [[ ${1:-} == --check ]]; then
    check=--check
    shift
fi
readonly cases=${1:-} share=${2:-1} folder=build/release/bench
scripts/setup.sh bench
scripts/build.sh release tolvo-ipc-bench

# Three times a hundred servers are more sockets than the usual limit allows.
ulimit -n "$(ulimit -Hn)"
# Whether malloc gives large bodies back to the system after each request, and gets them page by page for the next, is a
# matter of chance and of twentyfold time at 1 MiB: it keeps them.
export MALLOC_MMAP_THRESHOLD_=$((32 << 20)) MALLOC_TRIM_THRESHOLD_=$((64 << 20))
# On one processor where the scheduler places threads does not decide, and the processor time of the process is the
# time that all sides together take.
processor=$(taskset -cp $$ | sed -E 's/.*: ([0-9]+).*/\1/')
timeout 600 taskset -c "$processor" "$folder/tolvo-ipc-bench" --benchmark_min_time=0.01 --benchmark_filter="$cases" \
    "$share" >"$folder/results.new"
mv "$folder/results.new" "$folder/results"

if [[ -z $cases ]]; then
    bench/table.py "$folder/results" --plot >"$folder/round-trips.data"
    gnuplot -e "data='$folder/round-trips.data'" bench/round_trips.gnuplot >"$folder/round-trips.svg"
fi
bench/table.py "$folder/results" ${check:+"$check"}
