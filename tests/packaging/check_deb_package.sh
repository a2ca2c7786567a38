#!/bin/sh
# check_deb_package.sh BUILD_DIR TARGET... -- PACKAGE:FILE...
# Builds the TARGETs and the Debian packages (CPack), checks the control
# fields, that each FILE (below the root) is in PACKAGE and that a plain
# cmake --install installs nothing no package holds, runs lintian.
# Installing them with dpkg, running the programs, the maintainer scripts
# and the units under systemd are checked by the VM suite in systemd mode
# (tests/vm/systemd).
set -u
build=$1
shift
targets=
while [ $# -gt 0 ] && [ "$1" != -- ]; do
    [ -n "$1" ] && targets="$targets $1"
    shift
done
[ $# -gt 0 ] && shift
packages=$(for entry in "$@"; do [ -n "$entry" ] && echo "${entry%%:*}"; done | sort -u | tr '\n' ' ')
packages=${packages% }
missing=
for tool in cpack:cmake dpkg-deb:dpkg dpkg-shlibdeps:dpkg-dev file:file strip:binutils lintian:lintian; do
    command -v "${tool%%:*}" >/dev/null 2>&1 || missing="$missing ${tool#*:}"
done
[ -z "$missing" ] || { echo "SKIPPED: tools missing; install the Debian packages:$missing"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
fail() { echo "FAIL: $*"; status=1; }
# Runs "$@" with its output kept aside; shows it and stops on failure.
quietly() {
    "$@" >"$work/log" 2>&1 || { cat "$work/log"; echo "FAIL: $*"; exit 1; }
}

# cpack installs what is there; it does not build.
# shellcheck disable=SC2086
quietly cmake --build "$build" --target $targets
quietly cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/out"
debs=
for package in $packages; do
    deb=$(ls "$work"/out/"${package}"_*.deb 2>/dev/null)
    [ -f "$deb" ] || { echo "FAIL: no package $package among: $(ls "$work/out")"; exit 1; }
    debs="$debs $deb"
done

for deb in $debs; do
    package=$(dpkg-deb -f "$deb" Package)
    for field in Section:admin Priority:optional Depends:libc6; do
        value=$(dpkg-deb -f "$deb" "${field%%:*}")
        [ "${value#*"${field#*:}"}" != "$value" ] || fail "$package: ${field%%:*} '$value' lacks ${field#*:}"
    done
    dpkg-deb -f "$deb" Depends >"$work/$package.depends"
    dpkg-deb -c "$deb" | awk '{ print $NF }' | sed 's|^\./||' >"$work/$package.contents"
    dpkg-deb --ctrl-tarfile "$deb" | tar -x -O ./conffiles 2>/dev/null >"$work/$package.conffiles"
done
if [ -f "$work/halvod.contents" ]; then
    grep -q -x -F /etc/halvo/halvod.conf "$work/halvod.conffiles" || fail "halvod: /etc/halvo/halvod.conf is not a conffile"
    # lintian does not see that postinst calls addgroup.
    grep -q adduser "$work/halvod.depends" || fail "halvod: Depends lacks adduser: $(cat "$work/halvod.depends")"
fi
for entry in "$@"; do
    [ -z "$entry" ] || grep -q -x -F "${entry#*:}" "$work/${entry%%:*}.contents" ||
        fail "${entry#*:} is not in the package ${entry%%:*}"
done
# What a plain install puts in place is all in the packages: an install rule
# without a package's component would be left out of both.
DESTDIR=$work/plain quietly cmake --install "$build" --prefix /usr
(cd "$work/plain" && find . ! -type d | sed 's|^\./||' | sort) >"$work/plain.list"
sort -u "$work"/*.contents | comm -23 "$work/plain.list" - >"$work/unpackaged"
[ ! -s "$work/unpackaged" ] || fail "installed but in no package: $(cat "$work/unpackaged")"
# shellcheck disable=SC2086
lintian --fail-on error,warning $debs >"$work/lintian.log" 2>&1 ||
    { cat "$work/lintian.log"; fail "lintian reports errors or warnings"; }

[ $status -eq 0 ] && echo "ok: $packages: $(cat "$work"/*.contents | wc -l) entries, lintian clean"
exit $status
