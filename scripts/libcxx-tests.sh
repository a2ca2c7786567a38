#!/bin/bash
# Builds halvoctl and its tests with clang and libc++, the C++ library of
# macOS and FreeBSD, and runs them (the daemon is left out: see
# cmake/Libcxx.cmake).   scripts/libcxx-tests.sh [BUILD_DIR]
set -euo pipefail
source_dir="$(cd "$(dirname "$0")/.." && pwd)"
build_dir=${1:-$source_dir/build-libcxx}

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
CC=clang CXX=clang++ cmake -S "$source_dir" -B "$build_dir" -G Ninja -DHALVO_LIBCXX=ON \
  -DHALVO_WERROR=ON "${launcher[@]}" >/dev/null
cmake --build "$build_dir" -j2
ctest --test-dir "$build_dir" -j2 -LE packaging --output-on-failure
