#!/bin/sh
# check_install_prefix.sh BUILD_DIR FILE...
# `cmake --install BUILD_DIR --prefix DIR` puts every file below DIR, each
# FILE (relative to DIR) among them. A DESTDIR catches what a rule with an
# absolute folder would otherwise write into the system.
set -u
build=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
DESTDIR=$work/root cmake --install "$build" --prefix "$prefix" >"$work/log" 2>&1 ||
    { cat "$work/log"; echo "FAIL: cmake --install"; exit 1; }
outside=$(cd "$work/root" && find . ! -type d | grep -v "^\.$prefix/")
[ -z "$outside" ] || { echo "FAIL: installed outside the prefix: $outside"; exit 1; }
for file in "$@"; do
    [ -z "$file" ] || [ -f "$work/root$prefix/$file" ] || { echo "FAIL: $file is not below the prefix"; exit 1; }
done
echo "ok: $(find "$work/root" ! -type d | wc -l) files, all below the prefix"
