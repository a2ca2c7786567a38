#!/bin/bash
# Runs halvod with the demo fixtures on 127.0.0.1:32999 (the one address
# halvoctl talks to) and shows halvoctl steering it.
#
#   daemon/demo/run-demo.sh BUILD_DIR
#
# BUILD_DIR is a CMake build directory holding cli/halvoctl and
# daemon/halvod.  The committed rules go to a scratch file, never into the
# source tree.  The daemon is stopped when the script ends.
set -euo pipefail

if [ $# -ne 1 ]; then
    echo "usage: $0 BUILD_DIR" >&2
    exit 2
fi
build=$(cd "$1" && pwd)
demo=$(cd "$(dirname "$0")" && pwd)
halvod="$build/daemon/halvod"
halvoctl="$build/cli/halvoctl"
for program in "$halvod" "$halvoctl"; do
    if [ ! -x "$program" ]; then
        echo "run-demo: $program is missing: build the halvod and halvoctl targets first" >&2
        exit 1
    fi
done

scratch=$(mktemp -d)
daemon_pid=
stop_daemon() {
    if [ -n "$daemon_pid" ]; then
        kill "$daemon_pid" 2>/dev/null || true
        wait "$daemon_pid" 2>/dev/null || true
    fi
    rm -rf "$scratch"
}
trap stop_daemon EXIT

"$halvod" --config /dev/null --listen 127.0.0.1:32999 \
    --devices "$demo/devices.json" --connections "$demo/connections.json" \
    --rules "$scratch/halvod.rules" 2>"$scratch/halvod.log" &
daemon_pid=$!

# Wait for the daemon to listen, or to give up (the port may be taken).
for _ in $(seq 100); do
    if grep -q "listening on" "$scratch/halvod.log"; then
        break
    fi
    if ! kill -0 "$daemon_pid" 2>/dev/null; then
        wait "$daemon_pid" 2>/dev/null || true
        daemon_pid=
        cat "$scratch/halvod.log" >&2
        if grep -q "Address already in use" "$scratch/halvod.log"; then
            echo "run-demo: 127.0.0.1:32999 is taken (another halvod?); halvoctl can only talk to that port, so stop whatever listens there and run again" >&2
        fi
        exit 1
    fi
    sleep 0.1
done
if ! grep -q "listening on" "$scratch/halvod.log"; then
    echo "run-demo: halvod did not start listening" >&2
    exit 1
fi

run() {
    echo
    echo "\$ halvoctl $*"
    "$halvoctl" "$@"
}

echo "halvod runs with the demo devices and connections from $demo"
run dev list
run conn list
run rule load "$demo/example.rules"
run rule list
run rule test -h 10.0.0.5 2
run rule test -h 10.0.0.9 2
run rule test -r 1
