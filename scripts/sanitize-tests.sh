#!/bin/sh
# Builds everything with AddressSanitizer and UndefinedBehaviorSanitizer and
# runs the whole test suite under them: any leak, bad access or undefined
# behaviour fails the test it happens in.
#
#   scripts/sanitize-tests.sh [build-dir] [ctest arguments...]
#
# build-dir defaults to build-asan in the source tree. Extra arguments go to
# ctest (for instance -R HostileDaemon).
set -eu

source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-$source_dir/build-asan}
[ $# -gt 0 ] && shift

cmake -S "$source_dir" -B "$build_dir" -G Ninja -DHALVO_SANITIZE=ON >/dev/null
cmake --build "$build_dir" -j2

# halt_on_error with print_stacktrace: the first finding ends the process
# with a trace, so that the test fails where the fault is.
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export ASAN_OPTIONS UBSAN_OPTIONS
ctest --test-dir "$build_dir" --output-on-failure -j2 "$@"
