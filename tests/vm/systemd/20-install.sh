# systemd as the guest's PID 1, and the Debian packages that run.sh built on
# this machine installed with dpkg -i as an administrator would; halvod then
# starts from its own units, at halvoctl's first connection.
check "systemd is PID 1 and sees no container" \
  sh -c 'test "$(cat /proc/1/comm)" = systemd && ! systemd-detect-virt --quiet --container'
check "the boot kept what the results folder held before systemd" test -e "$results/before-systemd"
check "no unit failed during the boot" sh -c '! systemctl --failed --plain --no-legend | grep .'
say "    multi-user.target after $(($(systemctl show -P ActiveEnterTimestampMonotonic multi-user.target) / 1000)) ms"

check "dpkg -i installs halvoctl and halvod" dpkg -i "$build"/vm/debs/*.deb
HALVOCTL=/usr/bin/halvoctl
check "postinst made the group halvo" getent group halvo
check "postinst made /var/lib/halvo 0750 root:halvo" \
  test "$(stat -c '%a %U:%G' /var/lib/halvo 2>&1)" = "750 root:halvo"
check "halvod.socket is enabled and started" systemctl enable --now halvod.socket
check "halvoctl dev lists disk0 through the socket" \
  sh -c "timeout 60 $HALVOCTL dev | grep -q 'Halvo test disk'"
check "halvoctl dev started halvod.service" systemctl is-active halvod.service
