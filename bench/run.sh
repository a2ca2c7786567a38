#!/bin/sh
# Builds the benchmarks in Release and prints the table of every figure
# against its floor (see README.md).
#
# Usage: bench/run.sh [halvo_bench options, e.g. --small-pairs=101]
# (hotplug_bench, P6, runs after it with its default 50 plugs.)
# Environment: BENCH_BUILD_DIR (default: build-bench beside bench/).
set -eu
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${BENCH_BUILD_DIR:-$source_dir/build-bench}

log=$(mktemp)
trap 'rm -f "$log"' EXIT
generator=
if command -v ninja >/dev/null 2>&1 && [ ! -f "$build_dir/CMakeCache.txt" ]; then
    generator="-G Ninja"
fi
# shellcheck disable=SC2086
if ! cmake -S "$source_dir" -B "$build_dir" $generator -DCMAKE_BUILD_TYPE=Release \
    -DHALVO_BUILD_BENCH=ON -DHALVO_BUILD_TESTS=OFF >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi
targets=halvo_bench
# hotplug_bench exists where halvod reads sysfs and uevents (Linux).
if cmake --build "$build_dir" --target help 2>/dev/null | grep -q '^hotplug_bench:'; then
    targets="halvo_bench hotplug_bench"
fi
echo "run.sh: building $targets and what they run in $build_dir" >&2
# shellcheck disable=SC2086
if ! cmake --build "$build_dir" -j2 --target $targets >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi

# halvo_bench takes the daemon's port 127.0.0.1:32999 in a private network
# namespace of its own, so it neither meets a running daemon nor disturbs
# one; where namespaces are not allowed it uses the machine's loopback and
# stops with a clear message if the port is taken.
status=0
"$build_dir/bench/halvo_bench" "$@" || status=$?
if [ -x "$build_dir/bench/hotplug_bench" ]; then
    # P6: the first failure (1) wins over a missed target (2).
    "$build_dir/bench/hotplug_bench" || { hotplug=$?; [ "$status" = 1 ] || status=$hotplug; }
fi
exit "$status"
