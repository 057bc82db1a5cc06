#!/usr/bin/env bash
# The tests under sanitizers: threads over the programs that have any, then addresses and undefined
# behaviour over everything. Further arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-packages.sh

# A death test forks a process that has threads, which the thread sanitizer cannot follow.
export TSAN_OPTIONS="halt_on_error=1 suppressions=$PWD/tests/tsan.supp"
cmake --preset tsan
threaded=(foundation_process_tests foundation_queue_tests foundation_file_tests foundation_net_tests
          console_tests QVTSharedUtils_tests QVTWebClient_tests preparation_tests xcode_tests
          toolchain_signature_tests toolchain_seal_tests toolchain_sign_tests toolchain_verify_tests inspect_tests)
cmake --build --preset tsan --target "${threaded[@]}" sendoff sendoff-inspect codesign codesign_allocate xcrun
for program in "${threaded[@]}"; do
  echo "== $program under the thread sanitizer"
  build/tsan/tests/bin/"$program" --gtest_brief=1 --gtest_filter='-*Death*'
done
echo "== interrupted and simultaneous runs under the thread sanitizer"
for file in interrupted at-once; do
  tests/runs/run.py --build build/tsan "tests/runs/$file.rows"
done

cmake --preset asan
cmake --build --preset asan
ctest --preset asan --parallel "$(nproc)" "$@"
