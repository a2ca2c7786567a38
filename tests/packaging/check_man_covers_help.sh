#!/bin/sh
# check_man_covers_help.sh HALVOCTL PAGE
# Every command, sub-command and option that `halvoctl -h` lists must be
# documented in the halvoctl(1) page.
set -u
LC_ALL=C.UTF-8
export LC_ALL
halvoctl=$1
page=$2

command -v man >/dev/null 2>&1 ||
    { echo "SKIPPED: man not found (Debian package man-db)"; exit 77; }
[ -s "$page" ] || { echo "FAIL: $page: missing or empty"; exit 1; }

help=$("$halvoctl" -h) || { echo "FAIL: halvoctl -h failed"; exit 1; }
[ -n "$help" ] || { echo "FAIL: halvoctl -h printed no help"; exit 1; }
text=$(MANWIDTH=200 man -E UTF-8 -l "$page" 2>/dev/null | col -b)

# "<tab>halvoctl conn drop [-p port] <host><tab>- ..." gives "conn drop":
# the words after the program name up to the first placeholder.
commands=$(printf '%s\n' "$help" | awk -F '\t' '
    { for (i = 1; i <= NF; i++) if ($i ~ /^halvoctl /) {
          n = split($i, w, " "); line = ""
          for (j = 2; j <= n && w[j] !~ /^[<[]/ && w[j] !~ /\|/; j++)
              line = line (line == "" ? "" : " ") w[j]
          print line } }')
options=$(printf '%s\n' "$help" | grep -o -- '-[A-Za-z]\b' | sort -u)

status=0
[ -n "$commands" ] || { echo "FAIL: no commands found in the help text"; exit 1; }
for item in $( { printf '%s\n' "$commands" | tr ' ' '_'; printf '%s\n' "$options"; } | sort -u); do
    phrase=$(printf '%s' "$item" | tr '_' ' ')
    if printf '%s\n' "$text" | grep -q -F -- "$phrase"; then
        echo "ok: $phrase"
    else
        echo "FAIL: \"$phrase\" from the help text is not in $(basename "$page")"
        status=1
    fi
done
exit $status
