# halvo-attach@.service from the halvoctl package keeps the disk attached
# over TLS, with the instance's options from /etc/halvo-attach, and detaches
# it when stopped.
port=$(gadget_port disk0)
instance=127.0.0.1:$TLS_PORT:$port
pki_issue lab-a && mkdir -p /etc/halvo-attach && cp "$PKI"/{lab-a.pem,lab-a.key,ca.pem} /etc/halvo-attach/
echo "HALVO_ATTACH_OPTIONS=--tls --cert lab-a.pem --key lab-a.key --ca ca.pem" >"/etc/halvo-attach/$instance.conf"
check "the package loaded the tls module" test -d /sys/module/tls
check "halvo-attach@$instance starts" systemctl start "halvo-attach@$instance.service"
check "the unit's attachment over TLS reads back" reads_back disk0
check "halvo-attach status shows it over TLS" sh -c "halvo-attach status | grep -q ' $port .* tls '"
check "systemctl stop of the unit detaches the disk" systemctl stop "halvo-attach@$instance.service"
check "after the unit stops the disk is back" share_ended disk0
journalctl -u "halvo-attach@$instance.service" --no-pager -o cat | sed 's/^/    /' >>"$results/log"
