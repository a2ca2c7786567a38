#!/bin/bash
# Builds halvoctl and the reference daemon halvod, then runs a short demo:
# halvod with the demo devices on loopback, and halvoctl steering it.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target halvoctl halvod
bash daemon/demo/run-demo.sh build
