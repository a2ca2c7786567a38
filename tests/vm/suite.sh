#!/bin/bash
# Runs the VM checks inside the guest: each file of checks/ in name order
# (or only those named), then the summary line. In systemd mode
# (HALVO_VM_MODE=systemd, from units/halvo-vm-checks.service) the steps are
# checks/10-gadget.sh (the disk) and then systemd/*.sh; a name is looked up
# in both folders, and a name with a slash is a script's path in the
# repository without .sh (e.g. bench/vm/usbip_throughput). Output: the
# guest's console; the check lines also go to RESULTS/log.
repo=$1 build=$2 results=$3 checks=$4 mode=${HALVO_VM_MODE:-script}
source "$repo/tests/vm/lib.sh"
vm_setup

vm=$repo/tests/vm
selected=("$vm"/checks/*.sh)
[ "$mode" = script ] || selected=("$vm/checks/10-gadget.sh" "$vm"/systemd/*.sh)
if [ -n "$checks" ]; then
  selected=()
  for name in ${checks//,/ }; do
    case "$name" in
      */*) selected+=("$repo/$name.sh") ;;
      *) selected+=("$vm"/*/"$name.sh") ;;
    esac
  done
fi
for step in "${selected[@]}"; do
  say "== $(basename "$step" .sh)"
  # shellcheck disable=SC1090
  source "$step"
  step_cleanup
done
summary
