#!/bin/bash
# Fails when a tracked C or C++ file differs from the .clang-format style,
# naming the files; `clang-format -i FILE...` mends them.
set -euo pipefail
cd "$(dirname "$0")/.."

format=$(command -v clang-format-14 || command -v clang-format)
unformatted=()
while IFS= read -r -d '' file; do
  if ! "$format" --dry-run --Werror "$file" >/dev/null 2>&1; then
    unformatted+=("$file")
  fi
done < <(git ls-files -z '*.c' '*.cpp' '*.h')

if [ ${#unformatted[@]} -gt 0 ]; then
  echo "check-format: not in the .clang-format style (run $format -i on them):" >&2
  printf '  %s\n' "${unformatted[@]}" >&2
  exit 1
fi
echo "check-format: every C and C++ file is formatted"
