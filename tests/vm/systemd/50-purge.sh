# dpkg --purge takes away all the packages brought: programs, units, the
# links that enabled them, config and rules; the group stays, as the package
# says (files elsewhere may belong to it).
check "dpkg --purge removes halvod and halvoctl" dpkg --purge halvod halvoctl
check "no program, unit, enabling link, config or rules is left" sh -c '! ls -d /usr/bin/halvoctl /usr/bin/halvo-attach \
  /usr/sbin/halvod /lib/systemd/system/halvod* /lib/systemd/system/halvo-attach@.service \
  /etc/systemd/system/*.wants/halvod* /etc/halvo /var/lib/halvo 2>/dev/null | grep .'
check "systemd knows no halvod unit any more" \
  sh -c '! systemctl list-units --all --plain --no-legend "halvod*" | grep .'
check "the group halvo stays" getent group halvo
