#!/usr/bin/env bash
# Fails when a manual page has a fault, or when the options in its synopsis or in its list are not those of the tool's
# --help, with the same arguments.
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

# Options: the options in the lines of its input, each on a line, with its argument: "--timeout MS".
Options() { grep -oE -- '(^|[^-[:alnum:]])--?[a-z][a-z-]*( [A-Z]+\b)?' | sed 's/^[^-]*//' | sort; }

# Compare TOOL PLACE OPTIONS: what stands in the manual page against what --help says.
Compare()
{
    diff <(Options <<<"$3") <(grep -oE '^  -[^ ]+( [A-Z]+\b)?' <<<"$help" | Options) && return
    Fail "man/$1.1: the options in its $2 (<) are not those of --help (>)"
}

scripts/setup.sh docs
scripts/build.sh dev tolvo-quillmere tolvo-ipc-call
mandoc -T lint -W warning man/*.1
for program in build/dev/tools/*/tolvo-*; do
    tool=$(basename "$program")
    help=$("$program" --help)
    page=$(mandoc -T ascii -O width=1000 "man/$tool.1" | sed 's/.\x08//g')
    Compare "$tool" synopsis "$(sed -n '/^SYNOPSIS/,/^DESCRIPTION/p' <<<"$page")"
    Compare "$tool" list "$(sed -nE 's/^     (-.*)/\1/p' <<<"$page" | sed 's/  .*//')"
done
