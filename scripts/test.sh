#!/bin/bash
# Builds everything and runs every test: the suite, then the same suite
# under AddressSanitizer + UndefinedBehaviorSanitizer, then a short run of
# each fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

jobs=$(nproc)
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHALVO_WERROR=ON >/dev/null
cmake --build build -j "$jobs"
ctest --test-dir build -j "$jobs" --output-on-failure

if [ -x scripts/sanitize-tests.sh ]; then
  bash scripts/sanitize-tests.sh
fi
if [ -x fuzz/run.sh ]; then
  bash fuzz/run.sh "${HALVO_FUZZ_SECONDS:-20}"
fi
