#!/bin/sh
# Starts four runs at once, of .ipa files of the same name, fifty times (or as often as told):
#   scripts/stress-concurrent-runs.sh [ROUNDS] [BUILD_FOLDER]
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
rounds=${1:-50}
build=${2:-$root/build}

cmake --build "$build" --target sendoff codesign codesign_allocate xcrun
# A row starts them three times.
for _ in $(seq $(((rounds + 2) / 3))); do
  "$root/tests/runs/run.py" --build "$build" "$root/tests/runs/at-once.rows"
done
