#!/bin/busybox sh
# The initramfs's /init: mounts the host's / (9p, read-only) under a tmpfs
# overlay, the cached kernel modules at /lib/modules and the results folder,
# then hands over to the guest's PID 1: guest_init.sh, or systemd
# (prepared by systemd_init.sh) in systemd mode.
/bin/busybox --install -s /bin
export PATH=/bin
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev

fail() {
  echo "vm init: $*" >/dev/console
  poweroff -f
}

for word in $(cat /proc/cmdline); do
  case "$word" in halvo.*=*)
    name=${word%%=*}
    eval "${name#halvo.}='${word#*=}'"
    ;;
  esac
done

while read -r module; do
  insmod "/modules/$module" || fail "insmod $module"
done </modules/order

mkdir -p /host /rw /newroot
mount -t 9p -o trans=virtio,version=9p2000.L,ro,cache=loose,msize=512000 host /host ||
  fail "cannot mount the host's /"
mount -t tmpfs -o size=75% tmpfs /rw
mkdir -p /rw/upper /rw/work
mount -t overlay overlay -o lowerdir=/host,upperdir=/rw/upper,workdir=/rw/work /newroot ||
  fail "cannot mount the overlay"
mkdir -p /newroot/usr/lib/modules "/newroot$results"
mount --bind "/newroot$modules" /newroot/usr/lib/modules
mount -t 9p -o trans=virtio,version=9p2000.L,msize=512000 results "/newroot$results" ||
  fail "cannot mount the results folder"
for folder in proc sys dev run; do
  mkdir -p "/newroot/$folder"
done
mount --move /proc /newroot/proc
mount --move /sys /newroot/sys
mount --move /dev /newroot/dev
mount -t tmpfs tmpfs /newroot/run
# /tmp stays the overlay's (its writes land in tmpfs too), so that a build
# folder under the host's /tmp stays visible.
if [ "$mode" = systemd ]; then
  sh "/newroot$repo/tests/vm/systemd_init.sh" /newroot "$repo" "$build" "$results" "$checks" ||
    fail "cannot prepare the guest for systemd"
  exec switch_root /newroot /lib/systemd/systemd
fi
exec switch_root /newroot /bin/busybox sh "$repo/tests/vm/guest_init.sh" \
  "$repo" "$build" "$results" "$mode" "$checks"
