#!/bin/bash
# Boots Debian's own kernel under qemu and runs the VM checks inside it:
# the real usbip-host, vhci-hcd and dummy_hcd drivers against the build's
# halvod and halvoctl and the system's usbip.
#
#   tests/vm/run.sh BUILD_DIR [CHECK...]   (CHECK: a file name in checks/
#                                           without .sh; all when none)
#
# HALVO_VM_MODE=script (the default): guest_init.sh is PID 1 and runs
# checks/*.sh on the build's programs. HALVO_VM_MODE=systemd: systemd is PID
# 1 (systemd_init.sh) and runs checks/10-gadget.sh and systemd/*.sh, which
# install the Debian packages that cpack makes here into BUILD_DIR/vm/debs
# (build first); a CHECK may name a file of either folder.
#
# The guest's root file system is this machine's / over 9p, read-only, under
# a tmpfs overlay; the kernel's modules come from BUILD_DIR/vm/kernel (fetched
# once with apt-get download, never installed). Results land in
# BUILD_DIR/vm/results. Exit status: 0 when every check passed, 1 when one
# failed, 77 when the VM cannot run here (the reason on stderr).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
repo=$(cd "$here/../.." && pwd)
build=$(cd "${1:?usage: run.sh BUILD_DIR [CHECK...]}" && pwd)
shift
vm=$build/vm
mode=${HALVO_VM_MODE:-script}

skip() {
  echo "vm: skipped: $*" >&2
  exit 77
}

for tool in qemu-system-x86_64 busybox depmod modprobe usbip dpkg apt-get; do
  command -v "$tool" >/dev/null || skip "$tool is missing (scripts/install-deps.sh installs it)"
done
[ -x "$build/daemon/halvod" ] && [ -x "$build/cli/halvoctl" ] || skip "no halvod/halvoctl in $build"
[ "$(id -u)" -eq 0 ] || skip "needs root (9p export of /)"

# The kernel that linux-image-amd64 names, unpacked into the build folder
# with its modules' dependency files. Prints the kernel's folder.
fetch_kernel() {
  local version
  version=$(apt-cache depends linux-image-amd64 2>/dev/null |
    sed -n 's/^ *Depends: linux-image-\([0-9].*\)$/\1/p' | head -1)
  if [ -z "$version" ]; then
    # No package lists: take what an earlier run left.
    version=$(ls "$vm/kernel" 2>/dev/null | tail -1)
    [ -n "$version" ] || skip "apt cannot name the kernel of linux-image-amd64"
  fi
  local folder=$vm/kernel/$version
  if [ ! -e "$folder/ready" ]; then
    echo "vm: fetching linux-image-$version" >&2
    rm -rf "$folder" && mkdir -p "$folder/deb"
    (cd "$folder/deb" && apt-get download -q -o APT::Sandbox::User=root \
      "linux-image-$version" >/dev/null) || skip "apt-get download linux-image-$version failed"
    dpkg -x "$folder"/deb/*.deb "$folder/root"
    rm -rf "$folder/deb"
    depmod -b "$folder/root" "$version"
    touch "$folder/ready"
  fi
  echo "$folder"
}

# A gzip'd cpio with static busybox, /init and the modules that mount the
# root file system, in the order their dependencies need.
make_initramfs() {
  local kernel=$1 version=$2 staging=$vm/initramfs
  rm -rf "$staging" && mkdir -p "$staging"/{bin,modules,proc,sys,dev}
  cp "$(command -v busybox)" "$staging/bin/busybox"
  cp "$here/init.sh" "$staging/init"
  chmod 755 "$staging/init"
  modprobe -d "$kernel/root" -S "$version" --show-depends -a \
    virtio_pci 9pnet_virtio 9p overlay |
    awk '$1 == "insmod" && !seen[$2]++ { print $2 }' |
    while read -r module; do
      cp "$module" "$staging/modules/"
      basename "$module" >>"$staging/modules/order"
    done
  (cd "$staging" && find . | busybox cpio -o -H newc 2>/dev/null | gzip -1) >"$vm/initramfs.cpio.gz"
}

# TCG unless a hardware KVM module is loaded: a bare /dev/kvm may be a
# software KVM that cannot run an ordinary guest.
accelerator() {
  if [ -e /sys/module/kvm_intel ] || [ -e /sys/module/kvm_amd ]; then
    [ -w /dev/kvm ] && echo "-accel kvm -cpu host" && return
  fi
  echo "-accel tcg,thread=multi -cpu max"
}

# The two Debian packages, for the guest's dpkg -i.
make_packages() {
  command -v dpkg-shlibdeps >/dev/null || skip "systemd mode needs dpkg-shlibdeps (dpkg-dev)"
  rm -rf "$vm/debs"
  cpack -G DEB --config "$build/CPackConfig.cmake" -B "$vm/debs" >"$vm/cpack.log" 2>&1 ||
    { tail -20 "$vm/cpack.log"; echo "vm: cpack failed"; exit 1; } >&2
}

[[ "$mode" =~ ^(script|systemd)$ ]] || { echo "vm: unknown HALVO_VM_MODE $mode" >&2; exit 1; }
[ "$mode" = script ] || make_packages
kernel=$(fetch_kernel)
version=$(basename "$kernel")
make_initramfs "$kernel" "$version"

rm -rf "$vm/results" && mkdir -p "$vm/results"
checks="$*"
started=$(date +%s)
# shellcheck disable=SC2046
timeout "${HALVO_VM_TIMEOUT:-840}" qemu-system-x86_64 $(accelerator) \
  -m "${HALVO_VM_MEMORY:-1024}" -smp "${HALVO_VM_CPUS:-2}" \
  -nodefaults -display none -no-reboot \
  -serial "file:$vm/console.log" \
  -kernel "$kernel/root/boot/vmlinuz-$version" -initrd "$vm/initramfs.cpio.gz" \
  -append "console=ttyS0 quiet panic=-1 rdinit=/init halvo.repo=$repo halvo.build=$build halvo.modules=$kernel/root/lib/modules halvo.results=$vm/results halvo.mode=$mode halvo.checks=${checks// /,}" \
  -virtfs "local,path=/,mount_tag=host,security_model=none,readonly=on,multidevs=remap" \
  -virtfs "local,path=$vm/results,mount_tag=results,security_model=none" \
  >"$vm/qemu.log" 2>&1 || echo "vm: qemu ended with status $?" >&2

cat "$vm/results/log" 2>/dev/null || true
echo "vm: $(($(date +%s) - started)) s in the VM (console: $vm/console.log)"
summary=$(tail -1 "$vm/results/log" 2>/dev/null || true)
case "$summary" in
  *" passed, 0 failed"*) exit 0 ;;
  *" passed, "*" failed"*) exit 1 ;;
  *)
    echo "vm: the guest did not finish; the end of its console:" >&2
    tail -30 "$vm/console.log" >&2
    exit 1
    ;;
esac
