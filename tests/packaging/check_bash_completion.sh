#!/bin/bash
# check_bash_completion.sh COMPLETIONS_DIR [HALVOCTL HALVOD]
# Loads the bash completion of halvoctl, halvod, halvo-rulecheck and
# halvo-attach and checks what each offers, with a stand-in halvoctl on PATH;
# then again with bash-completion's helpers loaded, when installed.  Given the programs, it
# also completes through the real halvoctl from a halvod in a private network
# namespace, so that a change of halvoctl's tables the completion cannot read
# shows here.
set -u
if [[ $# -eq 3 && -z ${HALVO_IN_NAMESPACE-} ]] && unshare -rn true 2>/dev/null; then
    HALVO_IN_NAMESPACE=1 exec unshare -rn bash "$0" "$@"
fi
completions=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin" "$work/files"
cp "$here/fake_halvoctl" "$work/bin/halvoctl"
touch "$work/files/rules.txt" "$work/files/readme" "$work/files/my rules" "$work/notes"
PATH=$work/bin:$PATH
cd "$work/files" || exit 1

load_completions()
{
    local program
    for program in halvoctl halvod halvo-rulecheck halvo-attach; do
        # shellcheck source=/dev/null
        source "$completions/$program.bash"
        complete -p "$program" >/dev/null 2>&1 ||
            { echo "FAIL: $program.bash registers no completion for $program"; exit 1; }
    done
}

failures=0 checks=0

# expect "WORDS" "EXPECTED": completes the last of WORDS (a trailing blank
# means an empty current word) and compares the sorted, distinct offers (as
# readline shows them).
expect()
{
    local line=$1 expected=$2 actual
    read -r -a COMP_WORDS <<<"$line"
    [[ $line == *" " ]] && COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMP_LINE=$line
    COMP_POINT=${#line}
    COMPREPLY=()
    local function errors
    function=$(complete -p "${COMP_WORDS[0]}" | sed 's/.*-F \([^ ]*\).*/\1/')
    "$function" "${COMP_WORDS[0]}" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}" 2>"$work/errors"
    errors=$(<"$work/errors")
    actual=$(printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort -u | paste -s -d ' ')
    ((checks++))
    if [[ $actual != "$expected" || -n $errors ]]; then
        printf 'FAIL (%s): "%s": expected [%s], got [%s]%s\n' "$mode" "$line" "$expected" \
            "$actual" "${errors:+, stderr: $errors}"
        ((failures++))
    fi
}

run_table()
{
    expect "halvoctl " "--help -h conn dev monitor rule"
    expect "halvoctl -" "--help -h"
    expect "halvoctl dev " "block list share unplug"
    expect "halvoctl conn " "drop kill list"
    expect "halvoctl rule " "edit list load test"
    expect "halvoctl monitor " ""
    expect "halvoctl bogus " ""

    expect "halvoctl dev share " "12 3"
    expect "halvoctl dev unplug 1" "12"
    expect "halvoctl dev block " "12 3"
    expect "halvoctl dev list " ""
    expect "halvoctl dev share 3 " ""

    expect "halvoctl conn drop " "10.0.0.7 lab-mac.local"
    expect "halvoctl conn drop -" "-p"
    expect "halvoctl conn drop -p " "32999 51000"
    expect "halvoctl conn drop -p 51000 " "10.0.0.7 lab-mac.local"
    expect "halvoctl conn drop 10.0.0.7 " ""
    expect "halvoctl conn kill " "4242"

    expect "halvoctl rule list " "-N"
    expect "halvoctl rule list -N " ""
    expect "halvoctl rule test -" "-f -h -r"
    expect "halvoctl rule test -r " "12 3"
    expect "halvoctl rule test -h lab-mac " "12 3"
    expect "halvoctl rule test -r 3 -" ""

    expect "halvoctl rule load " "my rules readme rules.txt"
    expect "halvoctl rule load m" "my rules"
    expect "halvoctl rule load r" "readme rules.txt"
    expect "halvoctl rule load rules.txt " ""
    expect "halvoctl rule test -f ru" "rules.txt"
    expect "halvoctl rule test -rf ru" "rules.txt"
    expect "halvoctl rule test -frules.txt -r " "12 3"

    # Without a daemon: nothing offered, and halvoctl's complaint hidden.
    touch "$work/bin/no-daemon"
    expect "halvoctl dev share " ""
    expect "halvoctl conn drop " ""
    rm "$work/bin/no-daemon"

    expect "halvod --" "--admin-group --allow-remote --config --connections --default --devices --first-request-seconds --help --idle-seconds --listen --max-clients --max-clients-per-user --max-parse-mib --max-transaction-mib --max-transactions-per-user --max-unread-mib --memory-budget-mib --payload-timeout-seconds --rescan-ms --reserved-clients --rules --rules-in-memory --share-dead-peer-seconds --share-listen --share-max-hosts --share-max-per-host --share-timeout-ms --share-tls-listen --sysfs --tls-cert --tls-client-ca --tls-key --version"
    expect "halvod --default " "block share"
    expect "halvod --config ru" "rules.txt"
    expect "halvod --sysfs $work/" "$work/bin $work/files"
    expect "halvod --admin-group roo" "root"
    expect "halvod --listen " ""

    expect "halvo-rulecheck -" "--help --strict --version"
    expect "halvo-rulecheck --strict r" "readme rules.txt"
    expect "halvo-rulecheck rules.txt m" "my rules"
    expect "halvo-rulecheck -- --" ""

    expect "halvo-attach " "--help --version attach detach list status"
    expect "halvo-attach attach --" "--ca --cert --key --persist --tls"
    expect "halvo-attach list " ""
    expect "halvo-attach list --tls --cert ru" "rules.txt"
}

mode=plain
load_completions
run_table

helpers=
for candidate in /usr/share/bash-completion/bash_completion /etc/bash_completion; do
    [[ -r $candidate ]] && { helpers=$candidate; break; }
done
if [[ -n $helpers ]]; then
    mode=bash-completion
    # shellcheck source=/dev/null
    source "$helpers" >/dev/null 2>&1
    load_completions
    run_table
else
    echo "note: bash-completion not installed; checked the plain script only"
fi

if [[ -n ${HALVO_IN_NAMESPACE-} ]]; then
    mode=live
    ln -sf "$2" "$work/bin/halvoctl"
    ip link set lo up || exit 1
    "$3" --config /dev/null --rules-in-memory --devices "$completions/../daemon/demo/devices.json" \
        --connections "$completions/../daemon/demo/connections.json" 2>"$work/halvod.log" &
    daemon=$!
    for _ in $(seq 50); do grep -q 'listening on' "$work/halvod.log" && break; sleep 0.1; done
    grep -q 'listening on' "$work/halvod.log" ||
        { echo "FAIL: halvod did not start:"; cat "$work/halvod.log"; kill $daemon; exit 1; }
    expect "halvoctl dev share " "1 2 3 4 5"
    expect "halvoctl conn drop " "10.0.0.5 lab-mac.local"
    expect "halvoctl conn drop -p " "50321 50322 50400"
    expect "halvoctl conn kill " "4242"
    kill $daemon
    wait $daemon 2>/dev/null
    # No daemon any more: nothing, quietly.
    expect "halvoctl dev share " ""
elif [[ $# -eq 3 ]]; then
    echo "note: no private network namespace (unshare -rn); checked without halvod"
fi

echo "$((checks - failures)) passed, $failures failed"
((failures == 0))
