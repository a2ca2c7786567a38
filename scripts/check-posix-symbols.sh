#!/bin/bash
# Fails when halvoctl's libraries call a C-library function outside POSIX.1-2008
# and the short allow-list beside it, so that a Linux-only call is caught
# here before it breaks the build on macOS or FreeBSD.
#   scripts/check-posix-symbols.sh BUILD_DIR
set -euo pipefail
build=${1:?usage: check-posix-symbols.sh BUILD_DIR}
here="$(cd "$(dirname "$0")" && pwd)/portability"

# The libraries that halvoctl is made of (the daemon is Linux's own).
libraries=(util/libhalvo_util.a rules/libhalvo_rules.a rulefiles/libhalvo_rule_files.a
           listings/libhalvo_listings.a link/libhalvo_link.a cli/libhalvo_cli.a)
paths=()
for library in "${libraries[@]}"; do
  [ -f "$build/$library" ] || { echo "check-posix-symbols: $build/$library is not built" >&2; exit 2; }
  paths+=("$build/$library")
done

# Undefined C symbols (C++ names are mangled, _Z...) that no project library defines.
defined=$(nm --defined-only --format=just-symbols "${paths[@]}" 2>/dev/null | sort -u)
# A fortified build (_FORTIFY_SOURCE) calls __memcpy_chk for memcpy and so
# on: each stands for the call it checks.
undefined=$(nm -u --format=just-symbols "${paths[@]}" 2>/dev/null | grep -v '^_Z' \
  | sed -E 's/^__(.+)_chk$/\1/' | sort -u)
outside=$(comm -23 <(echo "$undefined") <(echo "$defined") \
  | grep -vxF -f <(grep -v '^#' "$here/posix-2008.txt") \
  | grep -vxE -f <(grep -v -e '^#' -e '^$' "$here/allowed.txt") || true)

if [ -n "$outside" ]; then
  echo "check-posix-symbols: calls outside POSIX.1-2008 and scripts/portability/allowed.txt:" >&2
  echo "$outside" | sed 's/^/  /' >&2
  exit 1
fi
echo "check-posix-symbols: ${#libraries[@]} libraries call only POSIX.1-2008 and allowed symbols"
