#!/usr/bin/env bash
# Configures and builds one preset, quietly unless it fails: build.sh PRESET [TARGET...]
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

preset=$1
shift
echo "Building preset $preset"
Quietly cmake --preset "$preset"
Quietly cmake --build --preset "$preset" ${1:+--target "$@"}
