# Sharing from inside halvod.service's sandbox on the USB/IP socket that
# systemd passes as "usbip" (halvod-usbip.socket), a reload with new rules,
# a stop while shared, and the TLS port's socket.
port=$(gadget_port disk0)

# Imported again once the disk is ready after the last share.
shared_again() {
  wait_for 60 gadget_ready disk0 >/dev/null && wait_for 60 attach "$port" >/dev/null &&
    wait_for 60 disk_of disk0 imported >/dev/null
}

check "halvoctl dev share commits a rule that shares disk0" \
  sh -c "timeout 30 $HALVOCTL dev share $(device_id "$port") >/dev/null"
# (40-journal checks the reason.)
check "a user outside the halvo group may not unplug disk0" \
  sh -c "! setpriv --reuid=65534 --regid=65534 --clear-groups -- $HALVOCTL dev unplug $(device_id "$port")"

# An administrator enables the USB/IP port; halvod takes it at its next start,
# here the first USB/IP connection.
systemctl stop halvod.service >/dev/null 2>&1
check "halvod-usbip.socket is enabled and started" systemctl enable --now halvod-usbip.socket
check "usbip list -r starts halvod and lists the shared disk" lists_port "$port"
check "halvod serves the socket named usbip" wait_for 10 journal_has "sharing over USB/IP on [::]:$SHARE_PORT"
check "usbip attach imports the disk from the sandbox and it reads back" share_and_read disk0
check "dev list shows the disk shared" \
  sh -c "timeout 30 $HALVOCTL dev list | grep -q '	$port	.*shared@127.0.0.1'"

echo "block serial disk0" >/var/lib/halvo/halvod.rules
check "systemctl reload halvod succeeds" systemctl reload halvod.service
check "the reloaded rules end the share" share_ended disk0
check "the reloaded rules no longer list the disk" \
  sh -c "! timeout 20 usbip --tcp-port $SHARE_PORT list -r 127.0.0.1 | grep -q ' $port:'"

echo "share serial disk0" >/var/lib/halvo/halvod.rules
systemctl reload halvod.service >/dev/null
check "a reload that shares the disk lets it be imported again" shared_again
check "systemctl stop halvod while shared succeeds" systemctl stop halvod.service
check "after systemctl stop the disk is back with usb and usb-storage" share_ended disk0

# The TLS port: halvod takes the socket named usbip-tls (its own checks of
# TLS imports are elsewhere). The sandbox hides /tmp: the files go to /run.
tls=/run/halvo-vm-tls
mkdir -p "$tls"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 \
  -subj /CN=halvo-vm -keyout "$tls/key.pem" -out "$tls/cert.pem" >/dev/null 2>&1
printf 'tls-cert = %s\ntls-key = %s\ntls-client-ca = %s\n' \
  "$tls/cert.pem" "$tls/key.pem" "$tls/cert.pem" >>/etc/halvo/halvod.conf
check "halvod-usbip-tls.socket is enabled and started" systemctl enable --now halvod-usbip-tls.socket
check "halvod starts with both USB/IP sockets" systemctl start halvod.service
check "halvod serves the socket named usbip-tls" \
  wait_for 10 journal_has "sharing over USB/IP in TLS on [::]:3241"
