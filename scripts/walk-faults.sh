#!/usr/bin/env bash
# Whole runs of sendoff, by .ipa and by archive, in which one system call fails: one call for each whole
# chain of callers, more than a thousand runs. The tests go by the last callers of each chain only.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-packages.sh
cmake --preset dev
cmake --build --preset dev --target fault_shim sendoff codesign codesign_allocate xcrun
tests/runs/faults.py --callers 30 "$@"
