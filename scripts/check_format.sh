#!/usr/bin/env bash
# Fails when a C or C++ file of the repository differs from what clang-format makes of it with
# the project's .clang-format. Usage: scripts/check_format.sh [source root]
set -uo pipefail
root=${1:-$(dirname "$0")/..}
cd "$root" || exit 2
command -v clang-format >/dev/null || { echo "format: clang-format is not installed" >&2; exit 2; }

files=$(git ls-files '*.c' '*.cpp' '*.h' '*.hpp' 2>/dev/null)
[[ -n "$files" ]] || files=$(find . -path ./build\* -prune -o \( -name '*.cpp' -o -name '*.hpp' -o -name '*.h' -o -name '*.c' \) -print)
drift=0
for f in $files; do
  if ! clang-format --dry-run --Werror "$f" >/dev/null 2>&1; then
    echo "format: $f differs from .clang-format (run: clang-format -i $f)" >&2
    drift=1
  fi
done
((drift == 0)) && echo "format: every file follows .clang-format"
exit $drift
