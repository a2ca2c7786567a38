#!/bin/busybox sh
# systemd_init.sh ROOT REPO BUILD RESULTS CHECKS (init.sh, systemd mode): the
# new root's tmpfs overlay made ready for systemd, whose default target
# units/halvo-vm.target runs suite.sh after multi-user.target, then powers off.
set -eu
root=$1 repo=$2 build=$3 results=$4 checks=$5
units=$root/etc/systemd/system

# Marks of a container (this machine may be one): systemd would believe them.
rm -f "$root/.dockerenv" "$root/run/.containerenv"
# A container image's veto on dpkg's scripts starting and stopping services.
rm -f "$root/usr/sbin/policy-rc.d"
# This machine's file systems are not the guest's; the journal stays in memory.
echo "# the VM's mounts are the initramfs's" >"$root/etc/fstab"
mkdir -p "$root/etc/systemd/journald.conf.d"
printf '[Journal]\nStorage=volatile\n' >"$root/etc/systemd/journald.conf.d/halvo-vm.conf"
# systemd-tmpfiles empties /tmp at boot: a build folder there must stay.
mkdir -p "$root/etc/tmpfiles.d"
echo "d /tmp 1777 root root -" >"$root/etc/tmpfiles.d/tmp.conf"
# man-db rebuilds its index after each dpkg -i: tens of seconds here.
rm -f "$root/var/lib/man-db/auto-update"

cp "$root$repo"/tests/vm/units/* "$units/"
printf 'REPO=%s\nBUILD=%s\nRESULTS=%s\nCHECKS=%s\n' "$repo" "$build" "$results" "$checks" \
  >"$root/etc/halvo-vm.env"
ln -sf /etc/systemd/system/halvo-vm.target "$units/default.target"

# Under TCG every process costs: nothing this machine enables starts, no
# generator runs (each would at boot and at every daemon-reload), and what
# only a machine in use needs (logins, D-Bus, timers, binfmt, debug file
# systems, static device nodes) stays off. systemd-tmpfiles-setup stays: it
# makes /run/lock.
rm -rf "$units"/*.wants
mkdir -p "$root/etc/systemd/system-generators"
for generator in "$root"/lib/systemd/system-generators/*; do
  ln -sf /dev/null "$root/etc/systemd/system-generators/${generator##*/}"
done
for unit in getty.target timers.target systemd-logind.service dbus.service dbus.socket \
  systemd-user-sessions.service systemd-update-utmp.service systemd-update-utmp-runlevel.service \
  systemd-binfmt.service proc-sys-fs-binfmt_misc.automount modprobe@dm_mod.service \
  modprobe@drm.service modprobe@fuse.service modprobe@loop.service dev-hugepages.mount \
  dev-mqueue.mount sys-kernel-debug.mount sys-kernel-tracing.mount sys-fs-fuse-connections.mount \
  kmod-static-nodes.service systemd-tmpfiles-setup-dev.service systemd-sysusers.service \
  systemd-sysctl.service systemd-random-seed.service systemd-journal-flush.service \
  systemd-modules-load.service systemd-remount-fs.service; do
  ln -sf /dev/null "$units/$unit"
done

# The checks find it unless the boot emptied or covered the results folder.
echo "written before systemd started" >"$root$results/before-systemd"
