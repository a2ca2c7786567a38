#!/bin/sh
# fuzz/run.sh <seconds-per-target> [build-dir (default: build-fuzz)]
# Builds the fuzz targets with clang and runs each from a fresh copy of its
# seed corpus (fuzz/corpus/<name>/, plus tests/data/rules for rule_text) in
# <build-dir>/corpus-work/<name>/; FUZZ_KEEP_CORPUS=1 goes on from what
# earlier runs left there. Crashing inputs land in
# <build-dir>/fuzz-artifacts/<name>/ (reproduce: <build-dir>/fuzz/halvo_fuzz_<name>
# <file>); exits non-zero when any target found a crash, a leak or a time-out.
# Environment: FUZZ_TARGETS (default all), FUZZ_JOBS (workers per target,
# default 1), CC/CXX (default clang/clang++).
set -eu

[ $# -ge 1 ] || { echo "usage: $0 <seconds-per-target> [build-dir]" >&2; exit 2; }
seconds=$1
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${2:-$source_dir/build-fuzz}
targets=${FUZZ_TARGETS:-"rule_text packet_stream reply_consumers usbip_request usbip_reply"}
jobs=${FUZZ_JOBS:-1}

cmake -S "$source_dir" -B "$build_dir" -G Ninja \
    -DCMAKE_C_COMPILER="${CC:-clang}" -DCMAKE_CXX_COMPILER="${CXX:-clang++}" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DHALVO_BUILD_FUZZ=ON -DHALVO_BUILD_TESTS=OFF >/dev/null
# shellcheck disable=SC2046,SC2086 # one word per target
cmake --build "$build_dir" -j2 --target $(printf 'halvo_fuzz_%s ' $targets)

failed=
for name in $targets; do
    work="$build_dir/corpus-work/$name"
    artifacts="$build_dir/fuzz-artifacts/$name"
    [ "${FUZZ_KEEP_CORPUS:-0}" = 1 ] || rm -rf "$work"
    mkdir -p "$work" "$artifacts"
    cp "$source_dir/fuzz/corpus/$name/"* "$work/"
    if [ "$name" = rule_text ]; then
        for file in "$source_dir"/tests/data/rules/*/*.rules; do
            cp "$file" "$work/golden_$(basename "$(dirname "$file")")_$(basename "$file")"
        done
    fi
    set -- -max_total_time="$seconds" -timeout=30 -rss_limit_mb=4096 \
        -print_final_stats=1 -artifact_prefix="$artifacts/"
    [ ! -f "$source_dir/fuzz/$name.dict" ] || set -- "$@" -dict="$source_dir/fuzz/$name.dict"
    [ "$jobs" -le 1 ] || set -- "$@" -fork="$jobs" -ignore_crashes=0
    echo "== $name: $seconds s"
    "$build_dir/fuzz/halvo_fuzz_$name" "$@" "$work" || failed="$failed $name"
done

if [ -n "$failed" ]; then
    echo "fuzzing found faults in:$failed (inputs under $build_dir/fuzz-artifacts/)" >&2
    exit 1
fi
echo "fuzzing found no faults"
