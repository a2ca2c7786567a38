#!/bin/bash
# check_bash_completion.sh COMPLETION_SCRIPT
# Loads the bash completion of halvoctl and checks what it offers, with a
# stand-in halvoctl on PATH that prints a device and a connection table.  The
# table runs twice: with the script alone, and with bash-completion's helpers
# loaded as in an interactive shell, when they are installed.
set -u
script=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
here=$(cd "$(dirname "$0")" && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin" "$work/files"
cp "$here/fake_halvoctl" "$work/bin/halvoctl"
touch "$work/files/rules.txt" "$work/files/readme" "$work/files/my rules"
PATH=$work/bin:$PATH
cd "$work/files" || exit 1

failures=0
checks=0

# expect "WORDS" "EXPECTED": completes the last of WORDS (split at blanks;
# a trailing blank means an empty current word) and compares the sorted
# offers, joined by blanks.
expect()
{
    local line=$1 expected=$2 actual
    read -r -a COMP_WORDS <<<"$line"
    [[ $line == *" " ]] && COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMP_LINE=$line
    COMP_POINT=${#line}
    COMPREPLY=()
    local errors
    errors=$(_halvoctl halvoctl "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}" 2>&1 >/dev/null)
    _halvoctl halvoctl "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}" 2>/dev/null
    actual=$(printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort | tr '\n' ' ')
    actual=${actual% }
    ((checks++))
    if [[ $actual != "$expected" || -n $errors ]]; then
        printf 'FAIL (%s): "%s": expected [%s], got [%s]%s\n' "$mode" "$line" "$expected" \
            "$actual" "${errors:+, stderr: $errors}"
        ((failures++))
    fi
}

run_table()
{
    # Commands and sub-commands.
    expect "halvoctl " "--help -h conn dev monitor rule"
    expect "halvoctl d" "dev"
    expect "halvoctl -" "--help -h"
    expect "halvoctl dev " "block list share unplug"
    expect "halvoctl conn " "drop kill list"
    expect "halvoctl rule " "edit list load test"
    expect "halvoctl rule l" "list load"
    expect "halvoctl monitor " ""
    expect "halvoctl bogus " ""

    # Device ids from the daemon, only where a device id is the operand.
    expect "halvoctl dev share " "12 3"
    expect "halvoctl dev unplug 1" "12"
    expect "halvoctl dev block " "12 3"
    expect "halvoctl dev list " ""
    expect "halvoctl dev share 3 " ""

    # Connections from the daemon.
    expect "halvoctl conn drop " "10.0.0.7 lab-mac.local"
    expect "halvoctl conn drop -" "-p"
    expect "halvoctl conn drop -p " "32999 51000"
    expect "halvoctl conn drop -p 51000 " "10.0.0.7 lab-mac.local"
    expect "halvoctl conn drop 10.0.0.7 " ""
    expect "halvoctl conn kill " "4242"

    # Rule options stand before the operand.
    expect "halvoctl rule list " "-N"
    expect "halvoctl rule list -N " ""
    expect "halvoctl rule test -" "-f -h -r"
    expect "halvoctl rule test -r " "12 3"
    expect "halvoctl rule test -h lab-mac " "12 3"
    expect "halvoctl rule test -f rules.txt -r " "12 3"
    expect "halvoctl rule test -r 3 " ""
    expect "halvoctl rule test -r 3 -" ""

    # File names for rule load and -f, also after bundled letters.
    expect "halvoctl rule load " "my rules readme rules.txt"
    expect "halvoctl rule load m" "my rules"
    expect "halvoctl rule load r" "readme rules.txt"
    expect "halvoctl rule load ru" "rules.txt"
    expect "halvoctl rule load rules.txt " ""
    expect "halvoctl rule test -f ru" "rules.txt"
    expect "halvoctl rule test -rf ru" "rules.txt"
    expect "halvoctl rule test -frules.txt -r " "12 3"

    # Without a daemon: nothing offered, and halvoctl's complaint hidden.
    touch "$work/bin/no-daemon"
    expect "halvoctl dev share " ""
    expect "halvoctl conn drop " ""
    expect "halvoctl rule test -r " ""
    rm "$work/bin/no-daemon"
}

mode=plain
# shellcheck source=/dev/null
source "$script"
declare -F _halvoctl >/dev/null || { echo "FAIL: $script defines no _halvoctl"; exit 1; }
run_table

helpers=
for candidate in /usr/share/bash-completion/bash_completion /etc/bash_completion; do
    [[ -r $candidate ]] && { helpers=$candidate; break; }
done
if [[ -n $helpers ]]; then
    mode=bash-completion
    # shellcheck source=/dev/null
    source "$helpers" >/dev/null 2>&1
    source "$script"
    run_table
else
    echo "note: bash-completion not installed; checked the plain script only"
fi

echo "$((checks - failures)) passed, $failures failed"
((failures == 0))
