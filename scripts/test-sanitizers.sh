#!/usr/bin/env bash
# The tests under sanitizers: addresses and undefined behaviour over everything, threads over the
# folders that have any. Further arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-packages.sh

cmake --preset asan
cmake --build --preset asan
ctest --preset asan --parallel "$(nproc)" "$@"

# Only these programs are built, so only their tests are known to ctest's label.
threaded=(foundation_tests QVTWebClient_tests xcode_tests toolchain_tests)
cmake --preset tsan
cmake --build --preset tsan --target "${threaded[@]}"
for program in "${threaded[@]}"; do
  echo "== $program under the thread sanitizer"
  build/tsan/tests/bin/"$program" --gtest_brief=1 --gtest_filter='-*Death*:*DeathTest*'
done
