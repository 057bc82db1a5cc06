#!/usr/bin/env bash
# Formatting, spelling and static checks over the tree (or over the files given). Needs the dev build
# to be configured, for its compile commands.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "$#" -gt 0 ]; then files=("$@"); else mapfile -t files < <(git ls-files '*.cpp' '*.h'); fi
sources=()
for file in "${files[@]}"; do
  case "$file" in *.cpp) grep -q "\"[^\"]*/$file\"" build/compile_commands.json && sources+=("$file") ;; esac
done

clang-format --dry-run -Werror "${files[@]}"
if command -v codespell >/dev/null; then codespell; else echo "codespell is not installed: spelling not checked"; fi
printf '%s\n' "${sources[@]}" | xargs --no-run-if-empty --max-procs="$(nproc)" --max-args=4 clang-tidy -p build --quiet
