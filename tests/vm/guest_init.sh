#!/bin/busybox sh
# PID 1 of the guest in script mode: runs the checks as its child and powers
# the machine off when they end, however they end.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
repo=$1 build=$2 results=$3 checks=$5
hostname halvo-vm
ip link set lo up
mkdir -p /dev/pts && mount -t devpts devpts /dev/pts
/bin/bash "$repo/tests/vm/suite.sh" "$repo" "$build" "$results" "$checks" \
  </dev/null >/dev/console 2>&1 &
wait $!
sync
busybox poweroff -f
