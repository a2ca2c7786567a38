#!/bin/bash
# Runs the VM checks inside the guest: each file of checks/ in name order
# (or only those named), then the summary line. Output: the guest's console;
# the check lines also go to RESULTS/log.
repo=$1 build=$2 results=$3 checks=$4
source "$repo/tests/vm/lib.sh"
vm_setup

selected=()
if [ -n "$checks" ]; then
  for name in ${checks//,/ }; do
    selected+=("$repo/tests/vm/checks/$name.sh")
  done
else
  selected=("$repo"/tests/vm/checks/*.sh)
fi
for step in "${selected[@]}"; do
  say "== $(basename "$step" .sh)"
  # shellcheck disable=SC1090
  source "$step"
  step_cleanup
done
summary
