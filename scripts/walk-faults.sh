#!/usr/bin/env bash
# Whole runs of sendoff, by .ipa and by archive, in which one system call fails: every single call of
# every kind in turn, some thousand runs. The tests do one for each chain of callers only. Arguments
# are those of tests/runs/faults.py.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-packages.sh
cmake --preset dev
cmake --build --preset dev --target fault_shim sendoff codesign codesign_allocate xcrun
tests/runs/faults.py --every "$@"
