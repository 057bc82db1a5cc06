#!/usr/bin/env bash
# Whole runs of sendoff, by .ipa and by archive, in which one system call fails: every single call of
# every kind in turn, some thousand runs. The tests do one for each chain of callers only.
#
#   scripts/walk-faults.sh               all of them
#   scripts/walk-faults.sh KIND:CHAIN    one that a test has named
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-packages.sh
cmake --preset dev
cmake --build --preset dev --target fault_tests sendoff codesign codesign_allocate xcrun
FAULT_WALK="${1:-full}" build/tests/bin/fault_tests
