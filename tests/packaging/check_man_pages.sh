#!/bin/sh
# check_man_pages.sh PAGE...
# Renders each roff manual page as man(1) would and fails on any warning of
# the renderer, or on scdoc markup that was left unrendered.
set -u
LC_ALL=C.UTF-8
export LC_ALL
MANWIDTH=80
export MANWIDTH

if command -v man >/dev/null 2>&1; then
    render() { man --warnings -E UTF-8 -l "$1"; }
elif command -v groff >/dev/null 2>&1; then
    render() { groff -man -ww -K utf8 -T utf8 "$1"; }
else
    echo "SKIPPED: neither man nor groff found (Debian packages man-db, groff-base)"
    exit 77
fi

status=0
fail() { echo "FAIL: $page: $*"; page_ok=0; status=1; }
for page in "$@"; do
    page_ok=1
    if [ ! -s "$page" ]; then
        fail "missing or empty"
        continue
    fi
    errors=$(mktemp)
    text=$(render "$page" 2>"$errors")
    if [ -s "$errors" ]; then
        fail "the renderer warns:"
        cat "$errors"
    fi
    rm -f "$errors"
    # An unbalanced * in the source survives into the text.
    if printf '%s\n' "$text" | grep -n '\*' >/dev/null; then
        fail "stray markup in the rendered text:"
        printf '%s\n' "$text" | grep -n '\*'
    fi
    printf '%s\n' "$text" | grep -q '^NAME' || fail "no NAME section"
    [ $page_ok -eq 1 ] && echo "ok: $(basename "$page")"
done
exit $status
