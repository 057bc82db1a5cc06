#!/usr/bin/env bash
# Formatting, spelling and static checks over the tree (or over the files given).
set -euo pipefail
cd "$(dirname "$0")/.."

# A build folder of its own, only configured: the others join source files, which hides their names.
cmake -S . -B build/lint -G Ninja -DCMAKE_UNITY_BUILD=OFF >/dev/null

if [ "$#" -gt 0 ]; then files=("$@"); else mapfile -t files < <(git ls-files '*.cpp' '*.h'); fi
sources=()
for file in "${files[@]}"; do
  case "$file" in *.cpp) grep -q "\"[^\"]*/$file\"" build/lint/compile_commands.json && sources+=("$file") ;; esac
done

clang-format --dry-run -Werror "${files[@]}"
if command -v codespell >/dev/null; then codespell; else echo "codespell is not installed: spelling not checked"; fi
printf '%s\n' "${sources[@]}" | xargs --no-run-if-empty --max-procs="$(nproc)" --max-args=4 clang-tidy -p build/lint --quiet
