# dpkg --purge takes away all the packages brought: programs, units, the
# links that enabled them, config and rules; the group stays, as the package
# says (files elsewhere may belong to it).
leftovers() {
  local left
  left=$(ls -d /usr/bin/halvoctl /usr/sbin/halvod /lib/systemd/system/halvod* /etc/halvo \
    /var/lib/halvo /etc/systemd/system/*.wants/halvod* 2>/dev/null)
  [ -z "$left" ] || { echo "left: $left"; return 1; }
}

check "dpkg --purge removes halvod and halvoctl" dpkg --purge halvod halvoctl
check "no program, unit, enabling link, config or rules is left" leftovers
check "no halvod unit is loaded" sh -c '! systemctl list-units --all --plain --no-legend "halvod*" | grep .'
check "nothing listens on the USB/IP port" sh -c "! timeout 20 usbip --tcp-port $SHARE_PORT list -r 127.0.0.1"
check "the group halvo stays" getent group halvo
