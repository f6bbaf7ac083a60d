#!/usr/bin/env bash
# Clients and services as separate processes that are killed, stopped and interrupted meanwhile; fails when an answer is
# wrong, a process ends or grows, or something no longer answers at the end: soak.sh [SECONDS [SEED]]
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

scripts/setup.sh soak
scripts/build.sh release tolvo-quillmere soak_service soak_client
exec /usr/bin/python3 tests/soak/soak.py build/release "${1:-20}" "${2:-$RANDOM}"
