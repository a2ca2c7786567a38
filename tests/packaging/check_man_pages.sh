#!/bin/sh
# check_man_pages.sh HALVOCTL PAGE...
# Renders each roff manual page as man(1) would and fails on any warning of
# the renderer or on scdoc markup left unrendered; every command, sub-command
# and option that `HALVOCTL -h` lists must be documented in halvoctl.1.
set -u
LC_ALL=C.UTF-8
export LC_ALL
halvoctl=$1
shift

command -v man >/dev/null 2>&1 ||
    { echo "SKIPPED: man not found (Debian package man-db)"; exit 77; }

status=0
fail() { echo "FAIL: $*"; status=1; }
errors=$(mktemp)
trap 'rm -f "$errors"' EXIT
for page in "$@"; do
    [ -s "$page" ] || { fail "$page: missing or empty"; continue; }
    text=$(MANWIDTH=80 man --warnings -E UTF-8 -l "$page" 2>"$errors")
    [ -s "$errors" ] && fail "$page: the renderer warns: $(cat "$errors")"
    # An unbalanced * in the source survives into the text.
    printf '%s\n' "$text" | grep -n '\*' && fail "$page: stray markup in the rendered text"
    printf '%s\n' "$text" | grep -q '^NAME' || fail "$page: no NAME section"
done

page=$(printf '%s\n' "$@" | grep '/halvoctl\.1$')
help=$("$halvoctl" -h) && [ -n "$help" ] || { echo "FAIL: halvoctl -h printed no help"; exit 1; }
text=$(MANWIDTH=200 man -E UTF-8 -l "$page" 2>/dev/null | col -b)
# "<tab>halvoctl conn drop [-p port] <host><tab>- ..." gives "conn_drop":
# the words after the program name up to the first placeholder.
commands=$(printf '%s\n' "$help" | awk -F '\t' '
    { for (i = 1; i <= NF; i++) if ($i ~ /^halvoctl /) {
          n = split($i, w, " "); line = ""
          for (j = 2; j <= n && w[j] !~ /^[<[]/ && w[j] !~ /\|/; j++)
              line = line (line == "" ? "" : "_") w[j]
          print line } }')
[ -n "$commands" ] || { echo "FAIL: no commands found in the help text"; exit 1; }
options=$(printf '%s\n' "$help" | grep -o -- '-[A-Za-z]\b')
for item in $(printf '%s\n' $commands $options | sort -u); do
    phrase=$(printf '%s' "$item" | tr '_' ' ')
    printf '%s\n' "$text" | grep -q -F -- "$phrase" ||
        fail "\"$phrase\" from the help text is not in $(basename "$page")"
done
[ $status -eq 0 ] && echo "ok: $# pages, $(printf '%s\n' $commands $options | sort -u | wc -l) help items"
exit $status
