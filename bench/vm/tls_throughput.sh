# Throughput of a disk imported over halvod's TLS port against the same disk
# imported in clear, in one boot (a figure, not a pass/fail test; not run by
# CI). Run it in the VM after 10-gadget:
#
#   tests/vm/run.sh BUILD_DIR 10-gadget bench/vm/tls_throughput
#
# halvo-attach imports the disk both ways, so that only the transport
# differs: plain USB/IP on halvod's port 3240, or TLS on 3241 with the
# kernel encrypting both directions. Each round reads 64 MiB with O_DIRECT
# and writes 32 MiB with O_DIRECT, once each way, the way that goes first
# alternating from round to round; the figure is the median of the
# per-round ratios TLS/clear. The guest's own AES-128-GCM speed is printed
# beside it, since under qemu's TCG the cipher is emulated.
#
# Up to 5 rounds, but no round starts after 9 minutes, so that the VM's
# time limit (HALVO_VM_TIMEOUT, 840 s) holds on a loaded machine: under TCG
# a round takes about 2 minutes. The disk is a gadget of its own,
# "tlsdisk", of 80 MiB in the guest's memory (the VM has 1024 MiB unless
# HALVO_VM_MEMORY says otherwise).
# shellcheck disable=SC2154 # results: set by suite.sh

TB_NAME=tlsdisk # disk_of reads 16 bytes: "HALVO-VM " and at most 7
TB_ROUNDS=5
TB_BUDGET_S=540
TB_READ_MIB=64
TB_WRITE_MIB=32

# tb_seconds COMMAND...: the command's wall time in seconds (3 decimals), or
# a failure with its output.
tb_seconds() {
  local started=${EPOCHREALTIME/./} output
  output=$("$@" 2>&1) || { echo "$* failed: $output" >&2; return 1; }
  awk -v us="$((${EPOCHREALTIME/./} - started))" 'BEGIN { printf "%.3f", us / 1e6 }'
}

# tb_import tls|clear: imports the bench disk that way; prints its device.
tb_import() {
  local busid
  busid=$(gadget_port "$TB_NAME") && wait_for 60 gadget_ready "$TB_NAME" || return 1
  if [ "$1" = tls ]; then
    wait_for 60 halvo_attach_tls lab-a attach 127.0.0.1 "$busid" >/dev/null
  else
    wait_for 60 timeout 60 "$HALVO_ATTACH" attach "127.0.0.1:$SHARE_PORT" "$busid" >/dev/null
  fi || { echo "halvo-attach cannot import $busid"; return 1; }
  wait_for 60 disk_of "$TB_NAME" imported && disk_of "$TB_NAME" imported
}

# tb_measure tls|clear: one round one way; prints "READ_MBPS WRITE_MBPS".
# The write goes past the first block so that the marker stays.
tb_measure() {
  local disk read write
  disk=$(tb_import "$1") || { echo "cannot import $TB_NAME ($1): $disk" >&2; return 1; }
  read=$(tb_seconds dd if="$disk" of=/dev/null bs=1M count="$TB_READ_MIB" iflag=direct) &&
    write=$(tb_seconds dd if=/dev/zero of="$disk" bs=1M count="$TB_WRITE_MIB" seek=16 \
      oflag=direct conv=fsync)
  local status=$?
  detach_all
  wait_for 30 client_imports_nothing >/dev/null
  [ "$status" = 0 ] || return 1
  awk -v r="$read" -v w="$write" -v rm="$TB_READ_MIB" -v wm="$TB_WRITE_MIB" \
    'BEGIN { printf "%.2f %.2f", rm * 1.048576 / r, wm * 1.048576 / w }'
}

# tb_median: the median of the numbers on standard input, one a line.
tb_median() {
  sort -g | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else printf "%.3f\n", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

tb_run() {
  local round order mode figures tls clear
  : >"$VM_TMP/tb_read" && : >"$VM_TMP/tb_write"
  say "    MB/s (10^6 bytes/s)   read clear   read TLS   write clear   write TLS"
  local started=$SECONDS
  for round in $(seq 1 "$TB_ROUNDS"); do
    if [ $((SECONDS - started)) -ge "$TB_BUDGET_S" ]; then
      say "    (no round $round: $TB_BUDGET_S s are gone)"
      break
    fi
    order="clear tls"
    [ $((round % 2)) = 0 ] && order="tls clear"
    for mode in $order; do
      figures=$(tb_measure "$mode") || return 1
      eval "$mode=(\$figures)"
    done
    # shellcheck disable=SC2154 # tls, clear: set by the eval
    say "$(printf '    round %d (%-9s)     %8s   %8s      %8s    %8s' "$round" "${order// /,}" \
      "${clear[0]}" "${tls[0]}" "${clear[1]}" "${tls[1]}")"
    awk -v t="${tls[0]}" -v c="${clear[0]}" 'BEGIN { printf "%.3f\n", t / c }' >>"$VM_TMP/tb_read"
    awk -v t="${tls[1]}" -v c="${clear[1]}" 'BEGIN { printf "%.3f\n", t / c }' >>"$VM_TMP/tb_write"
  done
  say "    TLS/clear, median of $(wc -l <"$VM_TMP/tb_read") rounds: read $(tb_median <"$VM_TMP/tb_read")" \
    "(rounds: $(paste -sd' ' "$VM_TMP/tb_read")), write $(tb_median <"$VM_TMP/tb_write")" \
    "(rounds: $(paste -sd' ' "$VM_TMP/tb_write"))"
}

# The guest's AES-128-GCM speed on 16 KiB blocks (TLS records are up to
# 16 KiB), from OpenSSL: what the kernel's cipher does is of the same order.
tb_aes_speed() {
  openssl speed -seconds 2 -bytes 16384 -evp aes-128-gcm 2>/dev/null |
    awk '/^(AES-128-GCM|aes-128-gcm)/ { printf "%.1f MB/s\n", $2 / 1000 }'
}

# The kernel's AES-GCM as the tls module took it: the driver of highest
# priority (generic-gcm-aesni with aesni_intel).
tb_kernel_gcm() {
  awk -F' *: ' '$1 == "name" { name = $2 } $1 == "driver" { driver = $2 }
    $1 == "priority" && name == "gcm(aes)" { print $2, driver }' /proc/crypto |
    sort -rn | awk 'NR == 1 { print $2 " (priority " $1 ")" }'
}

DISK_MIB=80 gadget_add "$TB_NAME" dummy_udc.1
pki_issue lab-a 2>/dev/null || { pki_make && pki_issue lab-a; }
: >"$VM_TMP/halvod.rules"
# A machine's udev loads aesni_intel at boot when the CPU has AES-NI; this
# guest has no udev, and without it the kernel's TLS takes aes-generic.
grep -qw aes /proc/cpuinfo && modprobe aesni_intel
modprobe tls
check "bench disk $TB_NAME is ready" wait_for 60 gadget_ready "$TB_NAME"
check "halvod starts with both ports" halvod_start_tls "default = share"
say "    guest AES-128-GCM (openssl speed, 16 KiB blocks): $(tb_aes_speed)"
say "    CPU: $(awk -F': ' '/^model name/ { print $2; exit }' /proc/cpuinfo)," \
  "AES instructions: $(grep -qw aes /proc/cpuinfo && echo yes || echo no)"
check "rounds of reads and writes over TLS and in clear" tb_run
say "    kernel AES-GCM for TLS: $(tb_kernel_gcm)"
gadget_unplug "$TB_NAME"
rm -f "$VM_TMP/$TB_NAME.img"
