#!/bin/sh
# Runs the unit tests under valgrind's memcheck: a second opinion beside the
# sanitizers, on an ordinary (unsanitized) build.
#
#   scripts/valgrind-tests.sh [build-dir] [gtest filter]
#
# build-dir defaults to build-valgrind in the source tree; it is configured
# without sanitizers (valgrind cannot run a sanitized program) and with a
# dynamically linked halvoctl (valgrind cannot replace the allocator of a
# static one). Every leak or memory error makes the run fail.
#
# With VALGRIND_E2E=1 the end-to-end tests run too, and valgrind follows
# each test into the halvoctl it starts (not into the shell scripts that
# stand in for editors), so halvoctl itself is checked against every
# scripted daemon. Expect this to take many minutes.
set -eu

source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-$source_dir/build-valgrind}
filter=${2:-*}

if ! command -v valgrind >/dev/null 2>&1; then
    echo "valgrind not found (Debian package valgrind)" >&2
    exit 77
fi

targets=halvo_unit_tests
if [ "${VALGRIND_E2E:-0}" = 1 ]; then
    targets="$targets halvo_e2e_tests"
fi
cmake -S "$source_dir" -B "$build_dir" -G Ninja -DHALVO_SANITIZE=OFF \
    -DHALVO_STATIC_PROGRAM=OFF >/dev/null
# shellcheck disable=SC2086 # one word per target
cmake --build "$build_dir" -j2 --target $targets

memcheck() {
    valgrind --tool=memcheck --error-exitcode=99 --leak-check=full \
        --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite,indirect \
        --track-origins=yes --quiet "$@"
}

memcheck "$build_dir/tests/halvo_unit_tests" --gtest_filter="$filter"
if [ "${VALGRIND_E2E:-0}" = 1 ]; then
    # The tests compare what halvoctl writes on stderr, so valgrind reports
    # into one file per process instead. A finding in halvoctl also turns
    # its exit status into 99, which the test that ran it reports as a
    # wrong status; the reports are shown at the end.
    logs="$build_dir/valgrind-logs"
    rm -rf "$logs"
    mkdir -p "$logs"
    status=0
    memcheck --trace-children=yes --trace-children-skip='/bin/*,/usr/bin/*' \
        --log-file="$logs/%p.log" \
        "$build_dir/tests/halvo_e2e_tests" --gtest_filter="$filter" || status=$?
    for log in "$logs"/*.log; do
        if [ -s "$log" ]; then
            echo "== $log" >&2
            cat "$log" >&2
        fi
    done
    exit "$status"
fi
