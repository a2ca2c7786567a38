#!/bin/bash
# Helpers of the VM checks (sourced by suite.sh inside the guest): the check
# lines and their counts, the gadget disks on dummy_hcd, halvod, the USB/IP
# client, and the states a shared device goes through.
# shellcheck disable=SC2154 # repo, build, results: set by suite.sh

VM_TMP=/tmp/halvo-vm
HALVOD=$build/daemon/halvod
HALVOCTL=$build/cli/halvoctl
SYSFS=/sys/bus/usb/devices
STUB=/sys/bus/usb/drivers/usbip-host
GADGETS=/sys/kernel/config/usb_gadget
SHARE_PORT=3240
DISK_MIB=4
passed=0 failed=0 known=0
HALVOD_PID=

say() {
  echo "$*" | tee -a "$results/log"
}

# check NAME COMMAND...: one PASS or FAIL line; a failure shows the end of
# what the command printed. The command runs in this shell, so that what it
# sets (HALVOD_PID) stays. KNOWN_FAILURE=WHY marks a check that is expected to
# fail until WHY is done: its failure is counted apart and fails nothing.
check() {
  local name=$1
  shift
  if "$@" >"$VM_TMP/output" 2>&1; then
    passed=$((passed + 1))
    say "PASS $name${KNOWN_FAILURE:+ (was a known failure: $KNOWN_FAILURE)}"
  else
    if [ -n "${KNOWN_FAILURE:-}" ]; then
      known=$((known + 1))
      say "FAIL $name (KNOWN FAILURE, $KNOWN_FAILURE)"
    else
      failed=$((failed + 1))
      say "FAIL $name"
    fi
    tail -15 "$VM_TMP/output" | sed 's/^/    /' | tee -a "$results/log"
  fi
}

summary() {
  say "$passed passed, $failed failed$([ "$known" -eq 0 ] || echo ", $known known failures")"
}

# wait_for SECONDS COMMAND...: until the command succeeds (polls 10 times a
# second); the command's last output when it never does.
wait_for() {
  local deadline=$((${EPOCHREALTIME/./} / 1000 + $1 * 1000)) output
  shift
  until output=$("$@" 2>&1); do
    if [ $((${EPOCHREALTIME/./} / 1000)) -ge "$deadline" ]; then
      echo "timed out: $* ${output:+($output)}"
      return 1
    fi
    sleep 0.1
  done
}

# Helpers that wait_for polls use shell built-ins where they can: a process
# costs tens of milliseconds in an emulated guest.

vm_setup() {
  mkdir -p "$VM_TMP"
  say "kernel $(uname -r), $(nproc) CPUs"
  modprobe dummy_hcd num="${HALVO_VM_BUSES:-17}" &&
    modprobe -a libcomposite usb_f_mass_storage usb-storage sd_mod usbip-host vhci-hcd ||
    say "FAIL modules cannot be loaded"
  mountpoint -q /sys/kernel/config || mount -t configfs configfs /sys/kernel/config
}

# --- gadget disks --------------------------------------------------------

# gadget_add NAME [UDC]: a USB mass-storage gadget whose disk is DISK_MIB of
# random bytes starting with "HALVO-VM NAME", plugged into the dummy UDC;
# its serial number is NAME.
gadget_add() {
  local name=$1 udc=${2:-dummy_udc.0} g=$GADGETS/$1 image=$VM_TMP/$1.img
  head -c "${DISK_MIB}M" /dev/urandom >"$image"
  printf 'HALVO-VM %s\n' "$name" | dd of="$image" conv=notrunc status=none
  mkdir "$g" "$g/strings/0x409" "$g/functions/mass_storage.0" "$g/configs/c.1"
  echo 0x1d6b >"$g/idVendor"
  echo 0x0104 >"$g/idProduct"
  echo 0x0100 >"$g/bcdDevice"
  echo "$name" >"$g/strings/0x409/serialnumber"
  echo "Halvo" >"$g/strings/0x409/manufacturer"
  echo "Halvo test disk" >"$g/strings/0x409/product"
  echo "$image" >"$g/functions/mass_storage.0/lun.0/file"
  ln -s "$g/functions/mass_storage.0" "$g/configs/c.1/"
  echo "$udc" >"$VM_TMP/$name.udc"
  gadget_plug "$name"
}

gadget_plug() {
  cat "$VM_TMP/$1.udc" >"$GADGETS/$1/UDC"
}

gadget_unplug() {
  echo "" >"$GADGETS/$1/UDC"
}

gadget_gone() {
  ! gadget_port "$1" >/dev/null
}

# The port of this machine's own (not imported) device with serial NAME.
gadget_port() {
  local folder serial
  for folder in "$SYSFS"/*; do
    [ -r "$folder/serial" ] && read -r serial <"$folder/serial" && [ "$serial" = "$1" ] || continue
    case "$(readlink -f "$folder")" in */vhci_hcd*) continue ;; esac
    echo "${folder##*/}"
    return 0
  done
  return 1
}

# The driver bound to sysfs entry $1 (a port or an interface).
driver_of() {
  local link
  link=$(readlink "$SYSFS/$1/driver" 2>/dev/null)
  echo "${link##*/}"
}

driver_is() {
  [ "$(driver_of "$1")" = "$2" ] || { echo "$1: driver '$(driver_of "$1")', not $2"; return 1; }
}

# The device on PORT is with its own drivers: usb, and usb-storage on its
# interface.
own_drivers() {
  driver_is "$1" usb && driver_is "$1:1.0" usb-storage
}

# ... and usbip-host has it neither bound nor in its match table.
bound_back() {
  own_drivers "$1" && match_table_clean "$1"
}

# match_table_clean PORT...: usbip-host's match table holds none of them.
match_table_clean() {
  local entries port
  read -r -a entries <"$STUB/match_busid"
  for port; do
    case " ${entries[*]} " in *" $port "*)
      echo "match_busid still holds $port: ${entries[*]}"
      return 1
      ;;
    esac
  done
}

in_use() {
  local status=
  read -r status <"$SYSFS/$1/usbip_status" 2>/dev/null
  [ "$status" = 2 ] || { echo "$1 is not in use by usbip-host"; return 1; }
}

# Moves gadget NAME to another dummy UDC (another bus, so another port).
gadget_move() {
  gadget_unplug "$1"
  # The old port lingers a moment after the unplug; a wait for the new one
  # must not find it.
  wait_for 10 gadget_gone "$1" >/dev/null
  echo "$2" >"$VM_TMP/$1.udc"
  gadget_plug "$1"
}

# across_ports N ROUND: gadget disk0 moved across the first N dummy buses
# (a port of its own on each), drivers not probed on their own meanwhile (no
# enumeration or SCSI scan to wait for), and `ROUND PORT` run on each port;
# then disk0 is back on the first bus, ready. Sets `ports` (each port) and
# `failures` (" PORT:what"; ROUND adds its own).
across_ports() {
  local udc port
  ports='' failures=''
  echo 0 >/sys/bus/usb/drivers_autoprobe
  for udc in $(ls /sys/class/udc | sort -V | head -"$1"); do
    gadget_move disk0 "$udc"
    if ! wait_for 30 gadget_port disk0 >/dev/null; then
      failures+=" $udc:not-plugged"
      continue
    fi
    port=$(gadget_port disk0)
    ports+=" $port"
    "$2" "$port"
  done
  echo 1 >/sys/bus/usb/drivers_autoprobe
  gadget_move disk0 dummy_udc.0
  wait_for 60 gadget_ready disk0 >/dev/null
}

# A gadget NAME that is plugged and whose disk usb-storage drives.
gadget_ready() {
  local port
  port=$(gadget_port "$1") || { echo "no device with serial $1"; return 1; }
  [ "$(driver_of "$port:1.0")" = usb-storage ] || { echo "$port:1.0 not with usb-storage"; return 1; }
}

# --- halvod ----------------------------------------------------------------

# halvod_start [OPTION...]: halvod with the config file $VM_TMP/halvod.conf
# (written here unless it exists), its log in $VM_TMP/halvod.log; waits for
# this start's lines (the log keeps earlier runs' lines of the step).
halvod_start() {
  [ -e "$VM_TMP/halvod.conf" ] || halvod_config "default = share"
  HALVOD_LOG_FROM=$(($(wc -l <"$VM_TMP/halvod.log" 2>/dev/null || echo 0) + 1))
  "$HALVOD" --config "$VM_TMP/halvod.conf" "$@" >>"$VM_TMP/halvod.log" 2>&1 &
  HALVOD_PID=$!
  if ! wait_for 30 halvod_started "sharing over USB/IP on .*:$SHARE_PORT" ||
    ! wait_for 5 halvod_started "listening on 127.0.0.1:32999"; then
    tail -5 "$VM_TMP/halvod.log"
    return 1
  fi
}

# halvod_started PATTERN: the log of halvod's latest start has a line that
# matches.
halvod_started() {
  tail -n "+${HALVOD_LOG_FROM:-1}" "$VM_TMP/halvod.log" | grep -q -- "$1"
}

# halvod_config LINE...: the config file, with the USB/IP listener and the
# rules file, plus the lines given.
halvod_config() {
  {
    echo "share-listen = ${SHARE_ADDRESS:-127.0.0.1}:$SHARE_PORT"
    echo "rules = $VM_TMP/halvod.rules"
    printf '%s\n' "$@"
  } >"$VM_TMP/halvod.conf"
}

# halvod_stop [SIGNAL]: signals halvod and waits up to 15 s for it to end.
halvod_stop() {
  local signal=${1:-TERM} pid=$HALVOD_PID
  [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null || { echo "halvod does not run"; HALVOD_PID=; return 1; }
  kill -"$signal" "$pid"
  if ! wait_for 15 sh -c "! kill -0 $pid 2>/dev/null"; then
    echo "halvod ($pid) still runs 15 s after SIG$signal"
    kill -KILL "$pid" 2>/dev/null
    return 1
  fi
  wait "$pid" 2>/dev/null
  HALVOD_PID=
}

halvod_runs() {
  kill -0 "$HALVOD_PID" 2>/dev/null || { echo "halvod ($HALVOD_PID) is gone"; tail -3 "$VM_TMP/halvod.log"; return 1; }
}

halvoctl() {
  timeout 10 "$HALVOCTL" "$@"
}

# The id that `halvoctl dev list` gives the device on PORT.
device_id() {
  halvoctl dev list | awk -F'\t' -v port="$1" '$3 == port { print $1 }'
}

halvod_log_has() {
  grep -q -- "$1" "$VM_TMP/halvod.log" || { echo "not in halvod's log: $1"; tail -5 "$VM_TMP/halvod.log"; return 1; }
}

# --- the USB/IP client -----------------------------------------------------

usbip_list() {
  timeout 20 usbip --tcp-port "$SHARE_PORT" list -r 127.0.0.1
}

lists_port() {
  usbip_list | grep -q "^ *$1:" || { echo "usbip list -r does not list $1"; usbip_list; return 1; }
}

attach() {
  timeout 30 usbip --tcp-port "$SHARE_PORT" attach -r 127.0.0.1 -b "$1"
}

# raw_import PORT [open]: imports PORT as a bare USB/IP client would, without
# vhci-hcd (no enumeration to wait for): the request, the reply's status,
# usbip-host taking the device over; closing the connection ends the share.
# With "open" the connection stays open on descriptor 3 for the caller.
raw_import() {
  local reply
  exec 3<>"/dev/tcp/127.0.0.1/$SHARE_PORT" || return 1
  { printf '\001\021\200\003\000\000\000\000%s' "$1"; head -c $((32 - ${#1})) /dev/zero; } >&3
  reply=$(head -c 8 <&3 | od -An -tx1 | tr -d ' \n')
  if [ "$reply" = 0111000300000000 ]; then
    wait_for 20 in_use "$1"
  else
    echo "import of $1 answered $reply"
    false
  fi
  local status=$?
  [ "${2:-}" = open ] || exec 3<&-
  return $status
}

# Detaches every port the client has imported.
detach_all() {
  local port
  for port in $(usbip port 2>/dev/null | sed -n 's/^Port \([0-9]*\):.*/\1/p'); do
    usbip detach -p "$port" >/dev/null 2>&1
  done
}

client_imports_nothing() {
  ! usbip port 2>/dev/null | grep -q '^Port [0-9]*:' || { echo "the client still imports"; return 1; }
}

# disk_of NAME imported|local: the block device of gadget NAME's disk as
# imported through vhci_hcd, or as this machine's own.
disk_of() {
  local block path
  for block in /sys/block/sd*; do
    path=$(readlink -f "$block")
    case "$2:$path" in
      imported:*/vhci_hcd*) ;;
      local:*/vhci_hcd* | imported:*) continue ;;
    esac
    [ "$(head -c 16 "/dev/${block##*/}" 2>/dev/null | head -1)" = "HALVO-VM $1" ] &&
      echo "/dev/${block##*/}" && return 0
  done
  echo "no $2 disk of $1"
  return 1
}

# The imported disk of NAME reads back its whole image.
reads_back() {
  local disk
  disk=$(wait_for 60 disk_of "$1" imported >/dev/null && disk_of "$1" imported) || { echo "$disk"; return 1; }
  cmp -n "$((DISK_MIB << 20))" "$disk" "$VM_TMP/$1.img"
}

# The share of gadget NAME has ended: the client imports nothing, the device
# is back with its drivers and out of usbip-host's match table.
share_ended() {
  local port
  port=$(gadget_port "$1") || { echo "no device $1"; return 1; }
  wait_for 30 client_imports_nothing || return 1
  wait_for 20 bound_back "$port"
}

# Imports gadget NAME and waits until its disk reads back.
share_and_read() {
  attach "$(gadget_port "$1")" >/dev/null && reads_back "$1"
}

# A second import of PORT is answered busy.
second_import_refused() {
  local output
  if output=$(timeout 30 usbip --tcp-port "$SHARE_PORT" attach -r 127.0.0.1 -b "$1" 2>&1); then
    echo "imported twice: $output"
    return 1
  fi
  echo "$output" | grep -qi busy || { echo "$output"; return 1; }
}

# Between steps: no import, no halvod, every gadget plugged and back.
step_cleanup() {
  detach_all
  [ -z "$HALVOD_PID" ] || halvod_stop TERM >/dev/null
  rm -f "$VM_TMP/halvod.conf" "$VM_TMP/halvod.rules"
  cat "$VM_TMP/halvod.log" >>"$results/halvod.log"
  : >"$VM_TMP/halvod.log"
}

# --- TLS -------------------------------------------------------------------

TLS_PORT=3241
PKI=$VM_TMP/pki
HALVO_ATTACH=$build/attach/halvo-attach

# pki_make: in $PKI, the CA the TLS port trusts (ca), a CA nobody trusts
# (stranger), and halvod's certificate halvo-vm.{pem,key}, valid for
# 127.0.0.1 and ::1 too.
pki_make() {
  mkdir -p "$PKI"
  pki_ca ca && pki_ca stranger && pki_issue halvo-vm "DNS:halvo-vm,IP:127.0.0.1,IP:::1"
}

pki_ca() {
  openssl req -x509 -days 2 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes \
    -keyout "$PKI/$1.key" -out "$PKI/$1.pem" -subj "/CN=halvo-vm-$1" 2>/dev/null
}

# pki_issue NAME [SUBJECT_ALT_NAMES [CA]]: $PKI/NAME.{pem,key} with common
# name NAME, signed by CA (default ca); the alternative names default to
# DNS:NAME.
pki_issue() {
  local name=$1 alternatives=${2:-DNS:$1} ca=${3:-ca}
  echo "subjectAltName=$alternatives" >"$PKI/$name.ext"
  openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes \
    -keyout "$PKI/$name.key" -out "$PKI/$name.csr" -subj "/CN=$name" 2>/dev/null &&
    openssl x509 -req -days 2 -in "$PKI/$name.csr" -CA "$PKI/$ca.pem" -CAkey "$PKI/$ca.key" \
      -CAcreateserial -extfile "$PKI/$name.ext" -out "$PKI/$name.pem" 2>/dev/null
}

# The config lines of halvod's TLS port (for halvod_config), with $PKI made:
# on SHARE_ADDRESS (default 127.0.0.1) with certificate SERVER_NAME (default
# halvo-vm).
tls_config() {
  echo "share-tls-listen = ${SHARE_ADDRESS:-127.0.0.1}:$TLS_PORT"
  echo "tls-cert = $PKI/${SERVER_NAME:-halvo-vm}.pem"
  echo "tls-key = $PKI/${SERVER_NAME:-halvo-vm}.key"
  echo "tls-client-ca = $PKI/ca.pem"
}

# halvod_start_tls [CONFIG LINE...]: halvod with both ports, the rules file
# and the lines given; waits until the TLS port is open too.
halvod_start_tls() {
  [ -e "$PKI/halvo-vm.pem" ] || pki_make || { echo "cannot make the certificates"; return 1; }
  halvod_config "$(tls_config)" "$@"
  halvod_start && wait_for 10 halvod_started "sharing over USB/IP in TLS on .*:$TLS_PORT"
}

# halvo_attach_tls AS VERB ARGUMENT...: halvo-attach against the TLS port
# with client certificate AS (made by pki_issue), e.g.
# `halvo_attach_tls lab-a attach 127.0.0.1 1-1`; the host gets the port.
halvo_attach_tls() {
  local as=$1 verb=$2 host=$3
  shift 3
  timeout 60 "$HALVO_ATTACH" "$verb" --tls --cert "$PKI/$as.pem" --key "$PKI/$as.key" \
    --ca "$PKI/ca.pem" "$host:$TLS_PORT" "$@"
}

# --- systemd mode (systemd/*.sh) -------------------------------------------

# share_started [NAME]: imports gadget NAME's disk (disk0 by default) once it
# is ready again after the last share (usbip attach fails while usb-storage
# still probes it), and waits for its first block only.
share_started() {
  local name=${1:-disk0}
  wait_for 60 gadget_ready "$name" >/dev/null && wait_for 60 attach "$(gadget_port "$name")" >/dev/null &&
    wait_for 60 disk_of "$name" imported >/dev/null
}

# journal_has TEXT [FIELD=VALUE...]: halvod.service's journal holds a record
# whose message starts with TEXT and that carries each field given.
journal_has() {
  local records field
  records=$(journalctl -u halvod -o json --no-pager | grep -F "\"MESSAGE\":\"$1")
  for field in "${@:2}"; do
    records=$(grep -F "\"${field%%=*}\":\"${field#*=}\"" <<<"$records")
  done
  [ -n "$records" ] || { echo "no journal record: $*"; journalctl -u halvod | tail -5; return 1; }
}
