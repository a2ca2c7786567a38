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
# running Debian's kernel under qemu, twice: with a script as PID 1 (every
# check of tests/vm/checks) and with systemd as PID 1 (the Debian packages
# and halvod under its units). Status 77 means it cannot run here; a failure
# stops the script. Each mode's results stay in build/vm/results-MODE.
vm_passed=0
for mode in script systemd; do
  vm_status=0
  HALVO_VM_MODE=$mode bash tests/vm/run.sh build || vm_status=$?
  if [ "$vm_status" -ne 77 ]; then
    rm -rf "build/vm/results-$mode" && cp -r build/vm/results "build/vm/results-$mode"
  fi
  case "$vm_status" in
    0)
      # The VM suite ends its log with "N passed, 0 failed".
      count=$(sed -n 's/^\([0-9]*\) passed, 0 failed.*/\1/p' build/vm/results/log | tail -1)
      vm_passed=$((vm_passed + ${count:-0}))
      ;;
    77) echo "VM suite, $mode mode: SKIPPED (see the reason above): not tested" ;;
    *) exit "$vm_status" ;;
  esac
done

# ctest ends each run with "... 0 tests failed out of N" (a failure has
# already stopped the script): add the suites up.
passed=0
for log in build/ctest-summary.log build/ctest-libcxx-summary.log build/ctest-asan-summary.log; do
  count=$(sed -n 's/.*tests failed out of \([0-9]*\).*/\1/p' "$log" | tail -1)
  passed=$((passed + ${count:-0}))
done
passed=$((passed + vm_passed))
echo "tests: $passed passed, 0 failed"
