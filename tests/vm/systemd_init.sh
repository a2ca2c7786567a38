#!/bin/busybox sh
# Prepares the guest for systemd as PID 1 (systemd mode): run by init.sh's
# busybox before it hands over, on the new root ROOT. Writes a default target
# that runs suite.sh once multi-user.target is reached and then powers the
# machine off, and keeps the boot lean. Everything lands in the tmpfs
# overlay, never on this machine.
#   systemd_init.sh ROOT REPO BUILD RESULTS CHECKS
set -eu
root=$1 repo=$2 build=$3 results=$4 checks=$5
units=$root/etc/systemd/system

# systemd takes these files for a container's (this machine may be one) and
# would then skip what only a machine of its own does.
rm -f "$root/.dockerenv" "$root/run/.containerenv"
# A container image's veto on starting and stopping services from dpkg's
# maintainer scripts: on a machine of its own the packages' scripts act.
rm -f "$root/usr/sbin/policy-rc.d"
# This machine's file systems are not the guest's: the initramfs mounted them.
echo "# the VM's mounts are the initramfs's" >"$root/etc/fstab"
# The journal in memory: its files on the overlay would only cost time.
mkdir -p "$root/etc/systemd/journald.conf.d"
printf '[Journal]\nStorage=volatile\n' >"$root/etc/systemd/journald.conf.d/halvo-vm.conf"
# systemd-tmpfiles empties /tmp at boot ("D /tmp"): a build folder there must
# stay.
mkdir -p "$root/etc/tmpfiles.d"
echo "d /tmp 1777 root root -" >"$root/etc/tmpfiles.d/tmp.conf"
# man-db rebuilds its index after each dpkg -i: tens of seconds here.
rm -f "$root/var/lib/man-db/auto-update"

cat >"$units/halvo-vm.target" <<EOF
[Unit]
Description=Halvo VM checks
Requires=multi-user.target
After=multi-user.target
Wants=halvo-vm-checks.service
AllowIsolate=yes
EOF
cat >"$units/halvo-vm-checks.service" <<EOF
[Unit]
Description=Halvo VM checks (suite.sh), then power-off
After=multi-user.target
# The results are on 9p, written through: nothing is lost by a forced end.
SuccessAction=poweroff-force
FailureAction=poweroff-force

[Service]
Type=oneshot
ExecStart=/bin/bash $repo/tests/vm/suite.sh $repo $build $results "$checks" systemd
StandardInput=null
StandardOutput=tty
StandardError=inherit
TTYPath=/dev/console
TimeoutStartSec=infinity
# The guest's journal, for a look at what went wrong.
ExecStopPost=/bin/sh -c "journalctl -b -o short-monotonic --no-pager >$results/journal.txt"
EOF
ln -sf /etc/systemd/system/halvo-vm.target "$units/default.target"

# Under TCG every process costs: no generator runs (each would at boot and at
# every daemon-reload), and what this machine enables or only a machine in
# use needs (logins, D-Bus, timers, clock, binfmt, debug file systems, static
# device nodes) stays off. systemd-tmpfiles-setup stays: it makes /run/lock.
mkdir -p "$root/etc/systemd/system-generators"
for generator in "$root"/lib/systemd/system-generators/*; do
  ln -sf /dev/null "$root/etc/systemd/system-generators/${generator##*/}"
done
for unit in getty.target timers.target remote-fs.target systemd-timesyncd.service \
  systemd-pstore.service e2scrub_reap.service postgresql.service systemd-logind.service \
  dbus.service dbus.socket systemd-user-sessions.service systemd-update-utmp.service \
  systemd-update-utmp-runlevel.service systemd-binfmt.service \
  proc-sys-fs-binfmt_misc.automount proc-sys-fs-binfmt_misc.mount modprobe@dm_mod.service \
  modprobe@drm.service modprobe@fuse.service modprobe@loop.service dev-hugepages.mount \
  dev-mqueue.mount sys-kernel-debug.mount sys-kernel-tracing.mount \
  sys-fs-fuse-connections.mount kmod-static-nodes.service systemd-tmpfiles-setup-dev.service \
  systemd-sysusers.service systemd-sysctl.service systemd-random-seed.service \
  systemd-journal-flush.service systemd-modules-load.service systemd-remount-fs.service; do
  ln -sf /dev/null "$units/$unit"
done

# Written before systemd starts: the checks find it again unless the boot
# emptied or covered the results folder.
echo "written before systemd started" >"$root$results/before-systemd"
