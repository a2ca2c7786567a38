#!/bin/bash
# Installs the Debian packages the build, the demo and the tests need.
# Idempotent: apt is asked only for what is missing.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config                  # toolchain
  clang-format                                      # the style check
  libboost1.81-dev libboost-json1.81-dev            # Boost.Asio, Boost.JSON
  libboost-program-options1.81-dev                  # halvod's options and config file
  libssl-dev openssl                                # TLS port and halvo-attach --tls (OpenSSL 3: kernel TLS); test certificates
  libsystemd-dev systemd                            # notify, socket activation, journal; unit checks
  libc++-14-dev libc++abi-14-dev                    # the second build, with clang and libc++
  usbip                                             # the standard USB/IP client, for interop tests
  lintian                                           # package checks
  libgtest-dev libbenchmark-dev                     # tests, benchmarks
  clang libclang-rt-14-dev                          # fuzzing (libFuzzer), sanitizer runtime
  scdoc gzip man-db groff-base                      # manual pages and their render check
  zsh bash-completion                               # completion checks
  dpkg-dev file binutils                            # Debian package check
  adduser                                           # halvod package's postinst, in the dpkg -i check
  util-linux iproute2                               # private network namespaces in tests
  valgrind                                          # memcheck runs on request
  qemu-system-x86 busybox-static kmod               # the VM suite (tests/vm): Debian's kernel
                                                    # under qemu, its initramfs, module order
  tcpdump                                           # the VM's TLS check: a capture of the wire
                                                    # must not hold the disk's bytes
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed'; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "install-deps: missing packages (run as root): ${missing[*]}" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
