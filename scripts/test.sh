#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test; further arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-packages.sh
cmake --preset dev
cmake --build --preset dev
# No more tests at a time than processors: several of them start compilers and archivers.
ctest --preset dev --parallel "$(nproc)" "$@"
