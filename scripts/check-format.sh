#!/usr/bin/env bash
# Checks that every C++ file the project tracks is formatted as .clang-format says.
# With --fix, formats them in place instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.cpp' '*.h' 2>/dev/null || find . -path ./build -prune -o -name '*.cpp' -print -o -name '*.h' -print)
if [[ ${1:-} == --fix ]]; then
  clang-format-14 -i "${files[@]}"
elif ! clang-format-14 --dry-run --Werror "${files[@]}" 2>/tmp/velmora-format.$$; then
  grep -m 20 'error:' /tmp/velmora-format.$$ >&2
  rm -f /tmp/velmora-format.$$
  echo "formatting differs from .clang-format: run scripts/check-format.sh --fix" >&2
  exit 1
fi
rm -f /tmp/velmora-format.$$
