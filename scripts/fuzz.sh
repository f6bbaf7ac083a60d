#!/usr/bin/env bash
# Feeds the registration service what a fuzzer makes up: fuzz.sh [SECONDS [FOLDER]]
# New inputs that reach new code are kept in FOLDER. An input that fails is kept in the build folder and named.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

scripts/setup.sh fuzz
scripts/build.sh fuzz switchboard_fuzz
MakeWorkFolder
found=${2:-$work/found}
mkdir -p "$found"
build/fuzz/tests/fuzz/switchboard_fuzz -max_total_time="${1:-30}" -timeout=10 -max_len=8192 \
    -dict=tests/fuzz/registration.dict -artifact_prefix=build/fuzz/ -print_final_stats=1 "$found" tests/fuzz/corpus \
    >"$work/log" 2>&1 || Fail "$(<"$work/log")"
grep -E '^(Done|stat::number_of_executed_units|stat::peak_rss_mb)' "$work/log"
