#!/usr/bin/env bash
# Checks every C and C++ file of the project against .clang-format; with
# --fix rewrites them instead. Exit 1 names the files that differ.
set -euo pipefail
cd "$(dirname "$0")/.."
format=${CLANG_FORMAT:-clang-format-14}
mapfile -t files < <(git ls-files -- '*.c' '*.cc' '*.cpp' '*.h' '*.hpp')
if [ "${1:-}" = --fix ]; then
  "$format" -i "${files[@]}"
else
  "$format" --dry-run -Werror "${files[@]}"
fi
