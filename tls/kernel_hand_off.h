// Whether a TLS session may be given to the kernel: both directions' keys
// must be in the kernel's TLS layer and no decrypted byte may wait in the
// library.  Without the `tls` module (or without the right to load it)
// OpenSSL silently keeps the session in userspace; giving such a socket to
// usbip-host or vhci-hcd would send the device's traffic in clear.
#pragma once

#include "util/expected.h"

#include <cstddef>

namespace halvo::tls {

class KernelState {
  public:
    virtual ~KernelState() = default;
    virtual bool kernelSends() const = 0;
    virtual bool kernelReceives() const = 0;
    // Decrypted bytes the library holds that the kernel would never see.
    virtual std::size_t pendingBytes() const = 0;
};

// Done, or why the socket must not go to the kernel.
util::Expected<void> checkKernelHandOff(const KernelState& state);

// Whether `why` (from checkKernelHandOff) means the kernel has no TLS at
// all, as opposed to a misbehaving peer.
bool kernelLacksTls(const KernelState& state);

} // namespace halvo::tls
