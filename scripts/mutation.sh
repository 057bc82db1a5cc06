#!/usr/bin/env bash
# How many small faults do the tests notice?
#
#   scripts/mutation.sh [--count N] [--seed N] [--sample FILE] [FOLDER...]
#   scripts/mutation.sh --continue [the same arguments]
#
# Copies the tree as it stands to build/mutation/tree, plants thousands of sleeping faults in the
# copy (a condition turned round, a call left out, a result turned round, an off-by-one), builds it
# once, and wakes a sample of them one at a time (300, seed 1; each room has its share; FOLDER
# limits them to some rooms). For each it runs the tests that reach the fault until one fails.
# --sample takes the faults of an earlier result instead, found again by file name and line, to
# compare two test suites. --continue goes on with a run that was ended.
#
# The verdicts are printed, and written to build/mutation/result.tsv: file:line, kind, the test that
# caught it or "survived" or "unreached", and the line. Each process that runs tests has its own
# namespaces and a read-only view of the machine, since a fault may remove or kill anything.
# 300 faults take an hour or more on two processors.
set -euo pipefail
cd "$(dirname "$0")/.."

work=$PWD/build/mutation

make_copy() {
  rm -rf "$work/tree"
  mkdir -p "$work/tree"
  git ls-files -z --cached --others --exclude-standard |
    tar --create --null --files-from - \
      --ignore-failed-read --warning no-failed-read |
    tar --extract --directory "$work/tree"
  scripts/mutation/plant.py "$work/tree" >"$work/mutants.tsv"
  echo "$(wc -l <"$work/mutants.tsv") faults planted"
}

build() {
  # Every file on its own, so that a planting that does not compile is found by its place. Planted
  # conditions cause warnings.
  cmake -S "$work/tree" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -DCMAKE_CXX_FLAGS=-w >"$work/build.log"
  cmake --build "$work/build" >>"$work/build.log" || { tail -n 40 "$work/build.log"; exit 1; }
}

if [[ " $* " != *" --continue "* ]]; then
  scripts/install-packages.sh
  make_copy
  build
fi
scripts/mutation/run.py --mutants "$work/mutants.tsv" --build "$work/build" \
  --result "$work/result.tsv" "$@"
