#!/usr/bin/env bash
# Builds for ARMv7 hard-float and runs the tests under qemu-arm. Installs what is missing; the target's libraries are
# unpacked into build/armv7-sysroot and no foreign architecture is added to this machine.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

scripts/lib/armv7-sysroot.sh
scripts/test.sh armv7
