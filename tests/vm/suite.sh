#!/bin/bash
# Runs the VM checks inside the guest: each file of checks/ in name order
# (or only those named), then the summary line. In systemd mode the steps are
# checks/10-gadget.sh (the disk) and then systemd/*.sh; a name is looked up
# in systemd/ first. Output: the guest's console; the check lines also go to
# RESULTS/log.
repo=$1 build=$2 results=$3 checks=$4 mode=${5:-script}
source "$repo/tests/vm/lib.sh"
vm_setup

vm=$repo/tests/vm
selected=()
if [ -n "$checks" ]; then
  for name in ${checks//,/ }; do
    if [ "$mode" = systemd ] && [ -e "$vm/systemd/$name.sh" ]; then
      selected+=("$vm/systemd/$name.sh")
    else
      selected+=("$vm/checks/$name.sh")
    fi
  done
elif [ "$mode" = systemd ]; then
  selected=("$vm/checks/10-gadget.sh" "$vm"/systemd/*.sh)
else
  selected=("$vm"/checks/*.sh)
fi
for step in "${selected[@]}"; do
  say "== $(basename "$step" .sh)"
  # shellcheck disable=SC1090
  source "$step"
  step_cleanup
done
summary
