# halvod's TLS port with halvo-attach on the real kernel: without the tls
# module an import is refused, never shared in clear; with it the imported
# disk reads back while the wire carries none of its bytes (and the plain
# port's wire does, so the capture can tell), the kernel encrypts both
# directions, the rules decide by certificate name, and a certificate from
# an unknown CA fails the handshake.
port=$(gadget_port disk0)
marker="HALVO-VM disk0"
NO_TLS=/etc/modprobe.d/halvo-vm-no-tls.conf

# capture_start PORT: the loopback's TCP traffic on PORT, into
# $VM_TMP/PORT.pcap, until capture_stop.
capture_start() {
  rm -f "$VM_TMP/$1.pcap"
  command -v tcpdump >/dev/null || { echo "tcpdump is missing (scripts/install-deps.sh installs it)"; return 1; }
  tcpdump -i lo -U -Z root -s 0 -w "$VM_TMP/$1.pcap" "tcp port $1" >"$VM_TMP/tcpdump.log" 2>&1 &
  CAPTURE_PID=$!
  wait_for 10 grep -q "listening on lo" "$VM_TMP/tcpdump.log"
}

capture_stop() {
  kill -INT "$CAPTURE_PID" 2>/dev/null
  wait "$CAPTURE_PID" 2>/dev/null
}

# capture_holds PORT yes|no: whether the capture holds the disk's marker,
# as expected; it must have carried the disk (more bytes than the disk).
capture_holds() {
  local file=$VM_TMP/$1.pcap size holds=no
  size=$(stat -c %s "$file") || return 1
  [ "$size" -gt "$((DISK_MIB << 20))" ] || { echo "the capture holds only $size bytes"; return 1; }
  grep -aqF "$marker" "$file" && holds=yes
  [ "$holds" = "$2" ] || { echo "marker on the wire: $holds, expected: $2 ($size bytes captured)"; return 1; }
}

# tls_sockets TX|RX: the kernel's count of sockets whose TLS it does in
# software that way.
tls_sockets() {
  awk -v key="TlsCurr${1}Sw" '$1 == key { print $2 }' /proc/net/tls_stat 2>/dev/null || echo 0
}

tls_offloaded() {
  local tx rx
  tx=$(tls_sockets Tx) rx=$(tls_sockets Rx)
  [ "$tx" -ge $((TX_BEFORE + 2)) ] && [ "$rx" -ge $((RX_BEFORE + 2)) ] ||
    { echo "TlsCurrTxSw $TX_BEFORE -> $tx, TlsCurrRxSw $RX_BEFORE -> $rx"; return 1; }
}

# refused_with AS WORD: an import as certificate AS fails, saying WORD.
refused_with() {
  local output
  output=$(halvo_attach_tls "$1" attach 127.0.0.1 "$port" 2>&1) && { echo "imported: $output"; return 1; }
  echo "$output" | grep -q "$2" || { echo "$output"; return 1; }
}

# lists_disk AS yes|no: whether the TLS port's list for certificate AS
# holds the disk, as expected.
lists_disk() {
  local output listed=no
  output=$(halvo_attach_tls "$1" list 127.0.0.1 2>&1) || { echo "$output"; return 1; }
  echo "$output" | grep -q "^$port " && listed=yes
  [ "$listed" = "$2" ] || { echo "$output"; return 1; }
}

pki_make && pki_issue lab-a && pki_issue lab-b && pki_issue lab-x DNS:lab-x stranger
echo 'block host "lab-b"' >"$VM_TMP/halvod.rules"

# Without the tls module, and without a way to load it.
echo "install tls /bin/false" >"$NO_TLS"
rmmod tls 2>/dev/null
check "the tls module is out and cannot be loaded" sh -c "test ! -e /sys/module/tls && ! modprobe tls"
check "halvod starts with the TLS port" halvod_start_tls "default = share"
check "without the tls module an import is refused with DEV_ERR" refused_with lab-a DEV_ERR
check "halvod logs the refusal for lack of kernel TLS" halvod_log_has "imports over TLS are refused"
check "the refused disk stays with its own drivers" own_drivers "$port"
rm -f "$NO_TLS"
modprobe tls

# Both ends in this machine: each end's socket counts once each way.
TX_BEFORE=$(tls_sockets Tx) RX_BEFORE=$(tls_sockets Rx)
check "tcpdump captures the TLS port" capture_start "$TLS_PORT"
check "halvo-attach --tls imports the disk" halvo_attach_tls lab-a attach 127.0.0.1 "$port"
check "the disk imported over TLS reads back" reads_back disk0
capture_stop >/dev/null
check "the TLS port's wire holds none of the disk's bytes" capture_holds "$TLS_PORT" no
check "the kernel encrypts both directions of both ends" tls_offloaded
check "conn list shows the certificate's name" sh -c "$HALVOCTL conn list | grep -q '^net	lab-a	'"
check "dev list shows the disk shared with lab-a" sh -c "$HALVOCTL dev list | grep -q '	$port	.*shared@lab-a'"
check "halvo-attach status shows the TLS attachment" sh -c "$HALVO_ATTACH status | grep -q ' 127.0.0.1:$TLS_PORT .* tls '"
check "conn drop lab-a ends the share" sh -c "$HALVOCTL conn drop lab-a >/dev/null"
check "after conn drop the disk is back" share_ended disk0

check "the TLS port lists the disk for lab-a" lists_disk lab-a yes
check "the TLS port does not list the disk for the blocked lab-b" lists_disk lab-b no
check "a blocked certificate name gets NODEV" refused_with lab-b NODEV
check "a certificate of an unknown CA fails the handshake" refused_with lab-x "TLS handshake"
check "halvod logs the failed handshake" halvod_log_has "TLS handshake failed"

# The same import on the plain port: the capture does see the marker.
check "tcpdump captures the plain port" capture_start "$SHARE_PORT"
check "halvo-attach imports the disk on the plain port" timeout 60 "$HALVO_ATTACH" attach 127.0.0.1 "$port"
check "the disk imported in clear reads back" reads_back disk0
capture_stop >/dev/null
check "the plain port's wire holds the disk's bytes" capture_holds "$SHARE_PORT" yes
detach_all
check "after detach the disk is back" share_ended disk0
