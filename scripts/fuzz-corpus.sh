#!/usr/bin/env bash
# Makes fuzz/corpus anew: every input below 4 KB that the tests give to a reader (`keepForFuzzing`, "row-…"),
# inputs with a name that somebody gave them, and what else reaches new code among those that were saved
# before, longer ones of the tests, and those that fuzzing finds (named by their SHA-1).
#
#   scripts/fuzz-corpus.sh [SECONDS]     fuzz each target for SECONDS first; none: 20
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset dev >/dev/null
cmake --build --preset dev
folder=build/fuzzing
rows=$PWD/$folder/rows
rm -rf "$rows"
for program in build/tests/bin/*_tests; do
  FUZZ_INPUTS=$rows "$program" --gtest_brief=1 >/dev/null 2>&1 || echo "$program fails" >&2
done

scripts/fuzz.sh "${1:-20}"
for target in "$rows"/*; do
  name=${target##*/}
  new=$folder/merged/$name
  rm -rf "$new"
  mkdir -p "$new"
  find "$target" -type f -size -4100c -exec cp {} "$new" \;
  find "fuzz/corpus/$name" -type f ! -name 'row-*' -regextype egrep ! -regex '.*/[0-9a-f]{40}' \
    -exec cp {} "$new" \;
  READER=$name "$folder/bin/fuzz_targets" -merge=1 -use_counters=0 -max_len=20000 -timeout=10 "$new" "$target" \
    "fuzz/corpus/$name" "$folder/corpus/$name" >"$folder/log/merge-$name" 2>&1
  rm -rf "fuzz/corpus/$name"
  cp -r "$new" "fuzz/corpus/$name"
  echo "$name: $(ls "$new" | wc -l) inputs"
done
