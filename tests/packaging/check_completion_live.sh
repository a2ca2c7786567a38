#!/bin/sh
# check_completion_live.sh HALVOCTL HALVOD COMPLETION_SCRIPT
# The bash completion against the real programs: halvod serves a fixture of
# devices and connections on the loopback of a private network namespace,
# and the completion reads them through the real halvoctl, so that a change
# of halvoctl's tables that the completion cannot read shows here.
set -u
absolute() { printf '%s/%s\n' "$(cd "$(dirname "$1")" && pwd)" "$(basename "$1")"; }
halvoctl=$(absolute "$1")
halvod=$(absolute "$2")
script=$(absolute "$3")

for tool in unshare:util-linux ip:iproute2 bash:bash; do
    command -v "${tool%%:*}" >/dev/null 2>&1 ||
        { echo "SKIPPED: ${tool%%:*} not found (Debian package ${tool#*:})"; exit 77; }
done
unshare -rn true 2>/dev/null ||
    { echo "SKIPPED: no private network namespace can be made here (unshare -rn)"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin"
ln -s "$halvoctl" "$work/bin/halvoctl"
cat >"$work/devices.json" <<'JSON'
{"devices": [
  {"vid": 1133, "pid": 49948, "rev": 272, "port": "1-2", "name": "USB Keyboard", "serial": "4C12"},
  {"vid": 1921, "pid": 21863, "rev": 256, "port": "1-10.4", "name": "Cruzer Blade", "built-in": true}]}
JSON
cat >"$work/connections.json" <<'JSON'
{"connections": [
  {"type": "net", "addr": "10.0.0.7", "port": 51000},
  {"type": "rdesk", "app": "Screen Sharing", "pid": 4242}]}
JSON

cat >"$work/inside.bash" <<'INSIDE'
set -u
work=$1 halvod=$2 script=$3
PATH=$work/bin:$PATH
ip link set lo up || exit 1
"$halvod" --config /dev/null --rules-in-memory --devices "$work/devices.json" --connections "$work/connections.json" \
    2>"$work/halvod.log" &
daemon=$!
for _ in $(seq 50); do
    grep -q 'listening on' "$work/halvod.log" && break
    sleep 0.1
done
grep -q 'listening on' "$work/halvod.log" ||
    { echo "FAIL: halvod did not start:"; cat "$work/halvod.log"; kill $daemon; exit 1; }

source "$script"
failures=0 checks=0
expect()
{
    local expected=$1 errors actual
    shift
    COMP_WORDS=("$@")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    errors=$(_halvoctl 2>&1 >/dev/null)
    _halvoctl 2>/dev/null
    actual=$(printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort | tr '\n' ' ')
    actual=${actual% }
    ((checks++))
    if [[ $actual != "$expected" || -n $errors ]]; then
        echo "FAIL: ${COMP_WORDS[*]}: expected [$expected], got [$actual]${errors:+, stderr: $errors}"
        ((failures++))
    fi
}
expect "1 2" halvoctl dev share ""
expect "1 2" halvoctl rule test -r ""
expect "10.0.0.7" halvoctl conn drop ""
expect "51000" halvoctl conn drop -p ""
expect "4242" halvoctl conn kill ""
kill $daemon
wait $daemon 2>/dev/null
# No daemon any more: nothing, quietly.
expect "" halvoctl dev share ""
echo "$((checks - failures)) passed, $failures failed"
((failures == 0))
INSIDE

unshare -rn bash "$work/inside.bash" "$work" "$halvod" "$script"
