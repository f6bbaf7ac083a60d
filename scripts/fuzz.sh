#!/usr/bin/env bash
# Feeds the registration service what a fuzzer makes up: fuzz.sh [SECONDS [FOLDER]]
# New inputs that reach new code are kept in FOLDER. An input that fails is kept in the build folder and named.
# fuzz.sh keep [FOLDER]: of tests/fuzz/corpus and FOLDER keeps as the corpus what covers something that no other input
# does, each named by what the registration service says to it and the fewest others.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

readonly corpus=tests/fuzz/corpus fuzzer=build/fuzz/tests/fuzz/switchboard_fuzz
MakeWorkFolder

# The kinds of lines that an input brings about, without names and numbers.
Kinds()
{
    SWITCHBOARD_LINES=1 "$fuzzer" "$1" 2>&1 | sed -nE 's/^tolvo-quillmere: //; T
        s/"([^"\\]|\\.)*"//g; s/,.*//; s/\<(from|of|to|as|its?|has)\>//g; s/[^a-z]+/-/gi; s/^-|-$//g; p' | sort -u
}

Keep()
{
    local input kind number
    mkdir "$work/merged" "$work/kinds" "$work/named"
    "$fuzzer" -set_cover_merge=1 -use_counters=0 -max_len=8192 "$work/merged" "$corpus" "$@" >"$work/log" 2>&1 ||
        Fail "$(<"$work/log")"
    for input in "$work"/merged/*; do Kinds "$input" >"$work/kinds/${input##*/}"; done
    cat "$work"/kinds/* | sort | uniq -c | sort -n | awk '{ print $2 }' >"$work/rarest-first"
    for input in "$work"/merged/*; do
        kind=$(grep -xFm 1 -f "$work/kinds/${input##*/}" "$work/rarest-first" || echo says-nothing)
        number=1
        while [[ -e $work/named/$kind-$number ]]; do number=$((number + 1)); done
        mv "$input" "$work/named/$kind-$number"
    done
    rm -rf "$corpus"
    mv "$work/named" "$corpus"
    ls "$corpus"
}

scripts/setup.sh fuzz
scripts/build.sh fuzz switchboard_fuzz
if [[ ${1:-} == keep ]]; then
    Keep "${@:2}"
    exit
fi

found=${2:-$work/found}
mkdir -p "$found"
"$fuzzer" -max_total_time="${1:-30}" -timeout=10 -max_len=8192 -dict=tests/fuzz/registration.dict \
    -artifact_prefix=build/fuzz/ -print_final_stats=1 "$found" "$corpus" >"$work/log" 2>&1 || Fail "$(<"$work/log")"
grep -E '^(Done|stat::number_of_executed_units|stat::peak_rss_mb)' "$work/log"
