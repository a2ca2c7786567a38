#!/bin/bash
# Builds everything and runs every test: the suite, then the same suite
# under AddressSanitizer + UndefinedBehaviorSanitizer, then a short run of
# each fuzz target. Ends with one summary line of the test counts.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
bash scripts/check-format.sh

jobs=$(nproc)
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHALVO_WERROR=ON >/dev/null
cmake --build build -j "$jobs"
ctest --test-dir build -j "$jobs" --output-on-failure | tee build/ctest-summary.log

# Portability: the platform choices for macOS and FreeBSD, the C-library
# calls of halvoctl's code, and a build with libc++.
cmake -P cmake/check-platform-choices.cmake
bash scripts/check-posix-symbols.sh build
bash scripts/libcxx-tests.sh build-libcxx | tee build/ctest-libcxx-summary.log

bash scripts/sanitize-tests.sh build-asan | tee build/ctest-asan-summary.log
bash fuzz/run.sh "${HALVO_FUZZ_SECONDS:-20}"

# The kernel side (usbip-host, vhci-hcd, a USB disk on dummy_hcd) in a VM
# running Debian's kernel under qemu; status 77 means it cannot run here.
vm_status=0
bash tests/vm/run.sh build || vm_status=$?
case "$vm_status" in
  0) ;;
  77) echo "VM suite: SKIPPED (see the reason above); the kernel side was not tested" ;;
  *) exit "$vm_status" ;;
esac

# ctest ends each run with "... 0 tests failed out of N" (a failure has
# already stopped the script): add the suites up.
passed=0
for log in build/ctest-summary.log build/ctest-libcxx-summary.log build/ctest-asan-summary.log; do
  count=$(sed -n 's/.*tests failed out of \([0-9]*\).*/\1/p' "$log" | tail -1)
  passed=$((passed + ${count:-0}))
done
echo "tests: $passed passed, 0 failed"
