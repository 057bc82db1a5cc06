#!/usr/bin/env bash
# Builds the fuzz targets and runs them, two at a time, each for SECONDS of its own. What they find
# is left in build/fuzzing/findings; what reached new code stays in build/fuzzing/corpus for the next
# run.
#
#   scripts/fuzz.sh SECONDS [TARGET...]     TARGET as in fuzz/corpus; none: all
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:?usage: fuzz.sh SECONDS [TARGET...]}
shift
targets=("$@")
if [ "${#targets[@]}" -eq 0 ]; then
  mapfile -t targets < <(ls fuzz/corpus)
fi

scripts/install-packages.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target fuzz_targets

folder=build/fuzzing
mkdir -p "$folder"/{corpus,findings,log,home}

# An input is a finding when it crashes the reader, takes ten seconds, or makes it ask for far more
# memory than inputs of 64 KiB deserve. Leaks count. Log lines of the readers go nowhere.
run() {
  local target=$1
  mkdir -p "$folder/corpus/$target"
  READER=$target HOME=$folder/home "$folder/bin/fuzz_targets" "$folder/corpus/$target" "fuzz/corpus/$target" \
    -max_total_time="$seconds" -max_len=65536 -timeout=10 -malloc_limit_mb=64 -rss_limit_mb=2048 \
    -close_fd_mask=3 -print_final_stats=1 -artifact_prefix="$folder/findings/$target-" \
    >"$folder/log/$target" 2>&1
}

status=0
report() {
  local target=$1 process=$2 outcome="nothing found"
  wait "$process" || { status=1; outcome="see $folder/log/$target"; }
  echo "$target: $(sed -n 's/^stat::number_of_executed_units: //p' "$folder/log/$target") runs, $outcome"
}

for ((i = 0; i < ${#targets[@]}; i += 2)); do
  pids=()
  for target in "${targets[@]:i:2}"; do
    run "$target" &
    pids+=($!)
  done
  for j in "${!pids[@]}"; do
    report "${targets[i + j]}" "${pids[j]}"
  done
done
exit "$status"
