#!/bin/sh
# check_deb_package.sh [--install] BUILD_DIR TARGET... -- PACKAGE:FILE...
# Brings the TARGETs that the packages install up to date and builds the
# Debian packages from the build tree with CPack.  Then, by default: checks
# their control fields, that each FILE (a path below the root, e.g.
# halvoctl:usr/bin/halvoctl) is in PACKAGE, runs the programs from a scratch
# root where both are unpacked, and runs lintian on them when it is
# installed.
# With --install: installs them for real with dpkg -i, runs the installed
# programs, checks what the maintainer scripts made, and purges them.  That
# changes the machine, so it runs only as root and with CI=true or
# HALVO_TEST_DPKG_INSTALL=1 (a machine thrown away afterwards); otherwise it
# is skipped.
set -u
install=false
if [ "${1-}" = --install ]; then
    install=true
    shift
fi
build=$1
shift
targets=
while [ $# -gt 0 ] && [ "$1" != -- ]; do
    [ -n "$1" ] && targets="$targets $1"
    shift
done
[ $# -gt 0 ] && shift

if $install; then
    if [ "${CI-}" != true ] && [ "${HALVO_TEST_DPKG_INSTALL-}" != 1 ]; then
        echo "SKIPPED: installs packages for real; set CI=true or HALVO_TEST_DPKG_INSTALL=1 on a throw-away machine"
        exit 77
    fi
    [ "$(id -u)" -eq 0 ] || { echo "SKIPPED: dpkg -i needs root"; exit 77; }
    for package in halvoctl halvod; do
        if dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q installed; then
            echo "SKIPPED: $package is installed on this machine already; not touching it"
            exit 77
        fi
    done
fi

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

# What the installed halvod package made: a daemon that tells its version,
# the admin group, the state folder, the conffile.
check_installed_daemon() {
    version=$(dpkg-query -W -f='${Version}' halvod)
    if ! halvod_version=$(/usr/sbin/halvod --version 2>&1); then
        fail "halvod --version failed: $halvod_version"
    elif [ "${halvod_version#*"${version%-*}"}" = "$halvod_version" ]; then
        fail "halvod --version says '$halvod_version', the package is $version"
    fi
    getent group halvo >/dev/null || fail "postinst made no group halvo"
    state=$(stat -c '%a %U:%G' /var/lib/halvo 2>&1)
    [ "$state" = "750 root:halvo" ] || fail "/var/lib/halvo is '$state', not '750 root:halvo'"
    dpkg-query -W -f='${Conffiles}\n' halvod | grep -q '^ /etc/halvo/halvod.conf ' ||
        fail "/etc/halvo/halvod.conf is not a conffile of halvod"
}

# cpack installs what is there; it does not build.
# shellcheck disable=SC2086
if ! cmake --build "$build" --target $targets >"$work/build.log" 2>&1; then
    cat "$work/build.log"
    echo "FAIL: could not build$targets"
    exit 1
fi
if ! cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1; then
    cat "$work/cpack.log"
    echo "FAIL: cpack could not build the packages"
    exit 1
fi

# The packages expected: each one named in a PACKAGE:FILE.
packages=$(for entry in "$@"; do [ -n "$entry" ] && echo "${entry%%:*}"; done | sort -u | tr '\n' ' ')
packages=${packages% }
debs=
for package in $packages; do
    deb=$(ls "$work"/out/"${package}"_*.deb 2>/dev/null)
    [ -f "$deb" ] || { echo "FAIL: no package $package among: $(ls "$work/out")"; exit 1; }
    debs="$debs $deb"
done
echo "packages:$(for deb in $debs; do printf ' %s' "$(basename "$deb")"; done)"

installed_root=$work/root
if $install; then
    installed_root=
    # Whether the group was there before, so that the check leaves none behind.
    group_existed=false
    getent group halvo >/dev/null && group_existed=true
    # shellcheck disable=SC2086
    if ! dpkg -i $debs >"$work/dpkg.log" 2>&1; then
        cat "$work/dpkg.log"
        fail "dpkg -i failed"
    fi
else
    for deb in $debs; do
        dpkg-deb -x "$deb" "$work/root"
    done
fi

# halvoctl: its help on standard output, nothing on standard error.
"$installed_root/usr/bin/halvoctl" -h >"$work/help" 2>"$work/help.err"
help_status=$?
[ $help_status -eq 0 ] || fail "halvoctl -h exited with $help_status"
expected=$(printf 'Usage:\thalvoctl dev\t\t- show list of devices')
[ "$(head -n 1 "$work/help")" = "$expected" ] ||
    fail "first help line is '$(head -n 1 "$work/help")'"
[ ! -s "$work/help.err" ] || fail "halvoctl -h wrote to standard error: $(cat "$work/help.err")"

if $install; then
    case " $packages " in
    *" halvod "*) check_installed_daemon ;;
    esac

    # shellcheck disable=SC2086
    dpkg --purge $packages >"$work/purge.log" 2>&1 || { cat "$work/purge.log"; fail "dpkg --purge failed"; }
    for gone in /usr/bin/halvoctl /usr/sbin/halvod /etc/halvo/halvod.conf /var/lib/halvo; do
        [ ! -e "$gone" ] || fail "$gone is still there after the purge"
    done
    $group_existed || delgroup --system --quiet halvo >/dev/null 2>&1 || true
    [ $status -eq 0 ] && echo "ok: installed $packages, ran them, purged"
    exit $status
fi

for deb in $debs; do
    package=$(dpkg-deb -f "$deb" Package)
    for field in Section:admin Priority:optional; do
        value=$(dpkg-deb -f "$deb" "${field%%:*}")
        [ "$value" = "${field#*:}" ] || fail "$package: ${field%%:*} is '$value', not '${field#*:}'"
    done
    case "$(dpkg-deb -f "$deb" Depends)" in
    *libc6*) ;;
    *) fail "$package: Depends lacks libc6 (dpkg-shlibdeps not run?): '$(dpkg-deb -f "$deb" Depends)'" ;;
    esac
    dpkg-deb -c "$deb" | awk '{ print $NF }' | sed 's|^\./||' >"$work/$package.contents"
done
if [ -f "$work/halvod.contents" ]; then
    deb=$(ls "$work"/out/halvod_*.deb)
    case "$(dpkg-deb -f "$deb" Depends)" in
    *adduser*) ;;
    *) fail "halvod: Depends lacks adduser, which its postinst calls" ;;
    esac
    dpkg-deb --ctrl-tarfile "$deb" | tar -x -C "$work" ./conffiles ./postinst ||
        fail "halvod: no conffiles or postinst"
    grep -q -x -F /etc/halvo/halvod.conf "$work/conffiles" ||
        fail "halvod: /etc/halvo/halvod.conf is not a conffile"
    [ -x "$work/postinst" ] || fail "halvod: postinst is not executable"
    "$work/root/usr/sbin/halvod" --help >/dev/null 2>&1 || fail "halvod --help failed"
fi

# Every expected file is in its package.
for entry in "$@"; do
    [ -n "$entry" ] || continue
    grep -q -x -F "${entry#*:}" "$work/${entry%%:*}.contents" ||
        fail "${entry#*:} is not in the package ${entry%%:*}"
done

# Compressed files must open.
# shellcheck disable=SC2013 # package paths hold no blanks
for file in $(grep -h '\.gz$' "$work"/*.contents); do
    gzip -t "$work/root/$file" || fail "$file is not a valid gzip file"
done

if command -v lintian >/dev/null 2>&1; then
    # shellcheck disable=SC2086
    lintian --fail-on error,warning $debs >"$work/lintian.log" 2>&1 ||
        { cat "$work/lintian.log"; fail "lintian reports errors or warnings"; }
    checked="lintian clean"
else
    checked="lintian not installed (Debian package lintian), not run"
fi

[ $status -eq 0 ] &&
    echo "ok: $(cat "$work"/*.contents | wc -l) entries, halvoctl -h and halvod --help run, $checked"
exit $status
