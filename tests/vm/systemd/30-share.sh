# Sharing from inside halvod.service's sandbox on the USB/IP socket that
# systemd passes as "usbip" (halvod-usbip.socket), a reload with new rules,
# a stop while shared, and the TLS port's socket.
port=$(gadget_port disk0)

check "halvoctl dev share commits a rule that shares disk0" \
  sh -c "timeout 30 $HALVOCTL dev share $(device_id "$port") >/dev/null"
check "a user outside the halvo group may not unplug disk0" \
  sh -c "! setpriv --reuid=65534 --regid=65534 --clear-groups -- $HALVOCTL dev unplug $(device_id "$port")"

# The USB/IP port reaches halvod at its next start: here, the first import.
systemctl stop halvod.service >/dev/null 2>&1
check "halvod-usbip.socket is enabled and started" systemctl enable --now halvod-usbip.socket
check "usbip list -r starts halvod and lists the shared disk" lists_port "$port"
check "halvod serves the socket named usbip" wait_for 10 journal_has "sharing over USB/IP on [::]:$SHARE_PORT"
check "usbip attach imports the disk from the sandbox and it reads back" share_and_read disk0

echo "block serial disk0" >/var/lib/halvo/halvod.rules
check "systemctl reload halvod succeeds" systemctl reload halvod.service
check "the reloaded rules end the share" share_ended disk0

echo "share serial disk0" >/var/lib/halvo/halvod.rules
systemctl reload halvod.service >/dev/null
check "a reload that shares the disk lets it be imported again" share_started
check "systemctl stop halvod while shared succeeds" systemctl stop halvod.service
check "after systemctl stop the disk is back with usb and usb-storage" share_ended disk0

# The TLS port: halvod takes the socket named usbip-tls (TLS imports are
# checked elsewhere). The sandbox hides /tmp: the files go to /run.
pki_make >/dev/null && cp -r "$PKI" /run/halvo-pki
printf 'tls-%s\n' "cert = /run/halvo-pki/halvo-vm.pem" "key = /run/halvo-pki/halvo-vm.key" \
  "client-ca = /run/halvo-pki/ca.pem" >>/etc/halvo/halvod.conf
check "halvod-usbip-tls.socket is enabled and started" systemctl enable --now halvod-usbip-tls.socket
check "halvod starts with both USB/IP sockets" systemctl start halvod.service
check "halvod serves the socket named usbip-tls" \
  wait_for 10 journal_has "sharing over USB/IP in TLS on [::]:3241"
