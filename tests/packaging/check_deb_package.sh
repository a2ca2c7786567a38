#!/bin/sh
# check_deb_package.sh BUILD_DIR TARGET... -- FILE...
# Brings the TARGETs that the package installs up to date, builds the Debian
# package from the build tree with CPack, unpacks it into a scratch root, runs
# the packaged halvoctl from there and checks that each FILE (a path below the
# root, e.g. usr/bin/halvoctl) is in the package.
set -u
build=$1
shift
targets=
while [ $# -gt 0 ] && [ "$1" != -- ]; do
    [ -n "$1" ] && targets="$targets $1"
    shift
done
[ $# -gt 0 ] && shift

missing=
for tool in cpack:cmake dpkg-deb:dpkg dpkg-shlibdeps:dpkg-dev file:file strip:binutils; do
    command -v "${tool%%:*}" >/dev/null 2>&1 || missing="$missing ${tool#*:}"
done
if [ -n "$missing" ]; then
    echo "SKIPPED: tools missing; install the Debian packages:$missing"
    exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
fail() { echo "FAIL: $*"; status=1; }

# cpack installs what is there; it does not build.
# shellcheck disable=SC2086
if ! cmake --build "$build" --target $targets >"$work/build.log" 2>&1; then
    cat "$work/build.log"
    echo "FAIL: could not build$targets"
    exit 1
fi
if ! cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1; then
    cat "$work/cpack.log"
    echo "FAIL: cpack could not build the package"
    exit 1
fi
deb=$(ls "$work"/out/*.deb 2>/dev/null)
if [ "$(printf '%s\n' "$deb" | grep -c '\.deb$')" -ne 1 ]; then
    echo "FAIL: expected one .deb, found: $deb"
    exit 1
fi
echo "package: $(basename "$deb")"

# The control fields that the installation relies on.
[ "$(dpkg-deb -f "$deb" Package)" = halvoctl ] || fail "package name is not halvoctl"
[ "$(dpkg-deb -f "$deb" Section)" = admin ] || fail "section is not admin"
depends=$(dpkg-deb -f "$deb" Depends)
case "$depends" in
*libc6*) ;;
*) fail "Depends lacks libc6 (dpkg-shlibdeps not run?): '$depends'" ;;
esac

# Every expected file is in the package.
dpkg-deb -c "$deb" | awk '{ print $NF }' | sed 's|^\./||' >"$work/contents"
for file in "$@"; do
    [ -n "$file" ] || continue
    grep -q -x -F "$file" "$work/contents" || fail "$file is not in the package"
done

# The packaged program runs from the unpacked tree.
dpkg-deb -x "$deb" "$work/root"
"$work/root/usr/bin/halvoctl" -h >"$work/help" 2>"$work/help.err"
help_status=$?
[ $help_status -eq 0 ] || fail "halvoctl -h exited with $help_status"
expected=$(printf 'Usage:\thalvoctl dev\t\t- show list of devices')
[ "$(head -n 1 "$work/help")" = "$expected" ] ||
    fail "first help line is '$(head -n 1 "$work/help")'"
[ ! -s "$work/help.err" ] || fail "halvoctl -h wrote to standard error: $(cat "$work/help.err")"

# Compressed manual pages must open.
for page in $(grep '^usr/share/man/.*\.gz$' "$work/contents"); do
    gzip -t "$work/root/$page" || fail "$page is not a valid gzip file"
done

[ $status -eq 0 ] && echo "ok: $(wc -l <"$work/contents") entries, halvoctl -h runs"
exit $status
