#!/bin/bash
# Runs halvod with the demo fixtures on 127.0.0.1:32999 (the one address
# halvoctl talks to) and shows halvoctl steering it, and, where Debian's
# usbip client is installed, what a remote host sees over USB/IP (on
# 127.0.0.1:3240, or the port in HALVO_DEMO_SHARE_PORT).
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

share_port=${HALVO_DEMO_SHARE_PORT:-3240}
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
    --rules "$scratch/halvod.rules" --share-listen "127.0.0.1:$share_port" \
    2>"$scratch/halvod.log" &
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
            echo "run-demo: 127.0.0.1:32999 or 127.0.0.1:$share_port is taken (another halvod?); halvoctl can only talk to 32999, so stop whatever listens there (or set HALVO_DEMO_SHARE_PORT) and run again" >&2
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

# What a remote host at 127.0.0.1 may import: exactly what the rules share
# with that address (here the serial adapter, rule 5).
if command -v usbip >/dev/null; then
    echo
    echo "\$ usbip --tcp-port $share_port list -r 127.0.0.1"
    usbip --tcp-port "$share_port" list -r 127.0.0.1
else
    echo
    echo "(install Debian's usbip package to see the USB/IP device list)"
fi
