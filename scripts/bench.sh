#!/usr/bin/env bash
# Measures the library against plain ZeroMQ and prints one table; leaves the results and a plot in the build folder.
# bench.sh [--check] [BUILD-FOLDER]: with --check it fails when a bound is missed by more than the machine's noise.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

check=
if [[ ${1:-} == --check ]]; then
    check=--check
    shift
fi
build=${1:-}
if [[ -z $build ]]; then
    scripts/setup.sh bench
    scripts/build.sh release tolvo-ipc-bench
    build=build/release
fi
readonly results=$build/bench/results.json

# On one processor where the scheduler places threads does not decide, and the processor time of the process is the
# time that all sides together take.
processor=$(taskset -cp $$ | sed -E 's/.*: ([0-9]+).*/\1/')
timeout 600 taskset -c "$processor" "$build/bench/tolvo-ipc-bench" --benchmark_min_time=0.01 >"$results.new"
mv "$results.new" "$results"

bench/table.py "$results" --plot >"$build/bench/round-trips.data"
gnuplot -e "data='$build/bench/round-trips.data'" bench/round_trips.gnuplot >"$build/bench/round-trips.svg"
bench/table.py "$results" ${check:+"$check"}
