# USB/IP read throughput on a real kernel (run on request, not by the
# suite): 64 MiB sequential O_DIRECT reads of a gadget disk of its own,
# locally, imported through halvod and imported through Debian's usbipd on
# the same device, every round in the other order. The figures are the
# medians of the per-round ratios halvod/usbipd and halvod/local; a single
# round's absolute speed means little on a shared, emulated machine.
#
#   tests/vm/run.sh BUILD_DIR bench/vm/usbip_throughput
#
# Sourced by the suite inside the guest, with lib.sh's helpers.

# Even, so that each order runs as often.
BENCH_ROUNDS=8
BENCH_MIB=64
BENCH_DISK=bench0
BENCH_USBIPD_PORT=3250

# A dummy UDC that no gadget uses yet.
bench_free_udc() {
  local udc used
  used=$(cat "$GADGETS"/*/UDC 2>/dev/null)
  for udc in /sys/class/udc/*; do
    udc=${udc##*/}
    grep -qx "$udc" <<<"$used" || { echo "$udc"; return 0; }
  done
  echo "no free UDC"
  return 1
}

bench_gadget_remove() {
  local g=$GADGETS/$BENCH_DISK
  gadget_unplug "$BENCH_DISK" 2>/dev/null
  rm -f "$g/configs/c.1/mass_storage.0"
  rmdir "$g/configs/c.1" "$g/functions/mass_storage.0" "$g/strings/0x409" "$g" 2>/dev/null
  rm -f "$VM_TMP/$BENCH_DISK.img"
}

# bench_read DISK: seconds that a BENCH_MIB MiB direct read of DISK takes.
bench_read() {
  local start=$EPOCHREALTIME end
  dd if="$1" of=/dev/null bs=1M count="$BENCH_MIB" iflag=direct status=none || return 1
  end=$EPOCHREALTIME
  awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f\n", b - a }'
}

# Every way starts from the same state: the device with its own drivers
# and its disk scanned, not still settling after the last way gave it back.
bench_settled() {
  wait_for 60 disk_of "$BENCH_DISK" local >/dev/null
}

bench_local() {
  bench_settled || return 1
  bench_read "$(disk_of "$BENCH_DISK" local)"
}

# bench_imported TCP_PORT: imports the disk from the server on TCP_PORT,
# times its read and detaches it.
bench_imported() {
  local seconds status=0
  timeout 30 usbip --tcp-port "$1" attach -r 127.0.0.1 -b "$bench_port" >/dev/null &&
    wait_for 60 disk_of "$BENCH_DISK" imported >/dev/null || return 1
  seconds=$(bench_read "$(disk_of "$BENCH_DISK" imported)") || status=1
  detach_all
  wait_for 30 client_imports_nothing >/dev/null
  echo "$seconds"
  return $status
}

bench_halvod() {
  local seconds status=0
  # halvod_start waits for the listening line: an earlier start's must not
  # count.
  cat "$VM_TMP/halvod.log" >>"$results/halvod.log" 2>/dev/null
  : >"$VM_TMP/halvod.log"
  bench_settled || return 1
  halvod_start >/dev/null || return 1
  seconds=$(bench_imported "$SHARE_PORT") || status=1
  halvod_stop >/dev/null
  wait_for 30 bound_back "$bench_port" >/dev/null && wait_for 60 gadget_ready "$BENCH_DISK" >/dev/null ||
    status=1
  echo "$seconds"
  return $status
}

# usbipd as its package documents it: the device bound to usbip-host by
# hand, the daemon, and the device unbound after.
bench_usbipd() {
  local seconds status=0 pid
  bench_settled || return 1
  usbip bind -b "$bench_port" >/dev/null 2>&1 || return 1
  usbipd -4 --tcp-port "$BENCH_USBIPD_PORT" >>"$VM_TMP/usbipd.log" 2>&1 &
  pid=$!
  if wait_for 10 sh -c "usbip --tcp-port $BENCH_USBIPD_PORT list -r 127.0.0.1 | grep -q ' $bench_port:'"; then
    seconds=$(bench_imported "$BENCH_USBIPD_PORT") || status=1
  else
    status=1
  fi
  kill "$pid" && wait "$pid" 2>/dev/null
  usbip unbind -b "$bench_port" >/dev/null 2>&1
  wait_for 60 gadget_ready "$BENCH_DISK" >/dev/null || status=1
  echo "$seconds"
  return $status
}

# MiB/s of a BENCH_MIB read that took $1 seconds.
bench_rate() {
  awk -v s="$1" -v m="$BENCH_MIB" 'BEGIN { printf "%.1f\n", m / s }'
}

# The median of the numbers given.
bench_median() {
  printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END {
    printf "%.2f\n", NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

bench_run() {
  local round order way seconds versus_usbipd=() versus_local=()
  local -A time
  for round in $(seq 1 "$BENCH_ROUNDS"); do
    order="local halvod usbipd"
    [ $((round % 2)) -eq 1 ] || order="usbipd halvod local"
    for way in $order; do
      seconds=$("bench_$way") || { say "FAIL round $round: the read through $way failed"; return 1; }
      time[$way]=$seconds
    done
    versus_usbipd+=("$(awk -v h="${time[halvod]}" -v u="${time[usbipd]}" 'BEGIN { printf "%.3f", u / h }')")
    versus_local+=("$(awk -v h="${time[halvod]}" -v l="${time[local]}" 'BEGIN { printf "%.3f", l / h }')")
    say "round $round ($order): local $(bench_rate "${time[local]}") MiB/s," \
      "halvod $(bench_rate "${time[halvod]}") MiB/s, usbipd $(bench_rate "${time[usbipd]}") MiB/s"
  done
  say "halvod/usbipd: median $(bench_median "${versus_usbipd[@]}") (rounds: ${versus_usbipd[*]})"
  say "halvod/local: median $(bench_median "${versus_local[@]}") (rounds: ${versus_local[*]})"
}

bench_saved_mib=$DISK_MIB
DISK_MIB=$BENCH_MIB
udc=$(bench_free_udc) && gadget_add "$BENCH_DISK" "$udc"
DISK_MIB=$bench_saved_mib
check "bench disk of $BENCH_MIB MiB on $udc is ready" wait_for 60 gadget_ready "$BENCH_DISK"
bench_port=$(gadget_port "$BENCH_DISK")
if [ -n "$bench_port" ]; then
  say "$BENCH_MIB MiB O_DIRECT reads of $bench_port, $BENCH_ROUNDS rounds (rates from rounds' own times)"
  check "every read completes" bench_run
fi
bench_gadget_remove
