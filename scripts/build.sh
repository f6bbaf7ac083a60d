#!/usr/bin/env bash
# Configures and builds one preset, quietly unless it fails: build.sh PRESET [TARGET...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=$1
shift
log=$(mktemp)
trap 'rm -f "$log"' EXIT
echo "Building preset $preset"
{ cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"}; } >"$log" 2>&1 </dev/null || {
    cat "$log"
    exit 1
}
