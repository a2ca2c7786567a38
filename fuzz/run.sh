#!/bin/sh
# Builds the fuzz targets with clang and runs each for a while.
#
#   fuzz/run.sh <seconds-per-target> [build-dir]
#
# build-dir defaults to build-fuzz in the source tree. Each target starts
# from a fresh copy of its seed corpus (fuzz/corpus/<name>/; the rule text
# target also takes the golden rule files of tests/data/rules) in
# <build-dir>/corpus-work/<name>/, which keeps what the run found; with
# FUZZ_KEEP_CORPUS=1 a run goes on from what earlier runs left there (the
# way to spread hours of fuzzing over several runs).
# Crashing inputs are saved in <build-dir>/fuzz-artifacts/<name>/; reproduce
# one with <build-dir>/fuzz/halvo_fuzz_<name> <file>. Exits non-zero when any
# target found a crash, a leak or a time-out.
#
# Environment: FUZZ_TARGETS (names, default all), FUZZ_JOBS (parallel
# workers per target, default 1), CC/CXX (default clang/clang++).
set -eu

if [ $# -lt 1 ]; then
    echo "usage: $0 <seconds-per-target> [build-dir]" >&2
    exit 2
fi
seconds=$1
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${2:-$source_dir/build-fuzz}
targets=${FUZZ_TARGETS:-"rule_text packet_stream reply_consumers usbip_request"}
jobs=${FUZZ_JOBS:-1}

cmake -S "$source_dir" -B "$build_dir" -G Ninja \
    -DCMAKE_C_COMPILER="${CC:-clang}" -DCMAKE_CXX_COMPILER="${CXX:-clang++}" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DHALVO_BUILD_FUZZ=ON -DHALVO_BUILD_TESTS=OFF >/dev/null
build_targets=
for name in $targets; do
    build_targets="$build_targets halvo_fuzz_$name"
done
# shellcheck disable=SC2086 # one word per target
cmake --build "$build_dir" -j2 --target $build_targets

failed=
for name in $targets; do
    work="$build_dir/corpus-work/$name"
    artifacts="$build_dir/fuzz-artifacts/$name"
    if [ "${FUZZ_KEEP_CORPUS:-0}" != 1 ]; then
        rm -rf "$work"
    fi
    mkdir -p "$work" "$artifacts"
    cp "$source_dir/fuzz/corpus/$name/"* "$work/"
    if [ "$name" = rule_text ]; then
        for file in "$source_dir"/tests/data/rules/*/*.rules; do
            cp "$file" "$work/golden_$(basename "$(dirname "$file")")_$(basename "$file")"
        done
    fi
    set -- -max_total_time="$seconds" -timeout=30 -rss_limit_mb=4096 \
        -print_final_stats=1 -artifact_prefix="$artifacts/"
    if [ -f "$source_dir/fuzz/$name.dict" ]; then
        set -- "$@" -dict="$source_dir/fuzz/$name.dict"
    fi
    if [ "$jobs" -gt 1 ]; then
        set -- "$@" -fork="$jobs" -ignore_crashes=0
    fi
    echo "== $name: $seconds s"
    if ! "$build_dir/fuzz/halvo_fuzz_$name" "$@" "$work"; then
        failed="$failed $name"
    fi
done

if [ -n "$failed" ]; then
    echo "fuzzing found faults in:$failed (inputs under $build_dir/fuzz-artifacts/)" >&2
    exit 1
fi
echo "fuzzing found no faults"
