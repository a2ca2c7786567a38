#!/bin/bash
# Runs the VM checks inside the guest: each file of checks/ in name order
# (or only those named: a name with a slash is a script's path in the
# repository without .sh, e.g. bench/vm/throughput), then the summary line. Output: the guest's console;
# the check lines also go to RESULTS/log.
repo=$1 build=$2 results=$3 checks=$4
source "$repo/tests/vm/lib.sh"
vm_setup

selected=()
if [ -n "$checks" ]; then
  for name in ${checks//,/ }; do
    case "$name" in
      */*) selected+=("$repo/$name.sh") ;;
      *) selected+=("$repo/tests/vm/checks/$name.sh") ;;
    esac
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
