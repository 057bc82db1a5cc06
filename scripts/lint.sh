#!/usr/bin/env bash
# Who includes whom, formatting, spelling and static checks.
#
#   scripts/lint.sh            the whole tree
#   scripts/lint.sh FILES...   these files
#   scripts/lint.sh --quick    rooms, formatting and spelling of the whole tree: a few seconds
set -euo pipefail
cd "$(dirname "$0")/.."

for tool in clang-format clang-tidy codespell; do
  command -v "$tool" >/dev/null || { echo "lint: $tool is missing (scripts/install-packages.sh)" >&2; exit 1; }
done

mode=files
case ${1:-} in
  '') mode=tree ;;
  --quick) mode=quick ;;
esac
if [ "$mode" = files ]; then files=("$@"); else mapfile -t files < <(git ls-files '*.cpp' '*.h'); fi

scripts/check-rooms.py
clang-format --dry-run -Werror "${files[@]}"
codespell
[ "$mode" != quick ] || exit 0

# tidy FOLDER OPTION...: the source files named on standard input, with FOLDER's commands. Warnings are
# the compiler's business, whose options clang does not all know.
tidy() {
  local folder=$1
  shift
  xargs --no-run-if-empty --max-procs="$(nproc)" --max-args=1 \
    clang-tidy -p "$folder" --quiet --extra-arg=-Wno-error "$@"
}

# compiled FOLDER: the files that the build folder compiles, relative to the tree.
compiled() { sed -n "s|^ *\"file\": \"$PWD/\(.*\)\",\{0,1\}\$|\1|p" "$1/compile_commands.json" | sort -u; }

cmake --preset separate >/dev/null
if [ "$mode" = files ]; then
  printf '%s\n' "${files[@]}" | { grep -Fxf <(compiled build/lint) || true; } | tidy build/lint
  exit
fi

# Reading headers takes most of the time, so files are checked as the dev build joins them. The
# analyzer leaves joined files alone, so it gets each of the product's files by itself.
cmake --preset dev >/dev/null
checks=-bugprone-suspicious-include,-clang-analyzer-*
compiled build | grep -vE '^(build/)?tests/' | tidy build --checks="$checks"
compiled build | grep -E '^(build/)?tests/' | tidy build --config-file=tests/.clang-tidy --checks="$checks"
compiled build/lint | grep -E '^bench/' | tidy build/lint
compiled build/lint | grep -vE '^(tests|fuzz|bench)/' | tidy build/lint --checks='-*,clang-analyzer-*'
