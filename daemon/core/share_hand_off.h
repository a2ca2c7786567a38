// Where a shared device's traffic goes: the kernel's usbip-host driver on
// Linux, a simulation for fixtures.  The daemon decides who may import
// what; this hands the device and the importing host's socket over, and
// takes the device back when the share ends.
#pragma once

#include "daemon/core/device.h"
#include "util/expected.h"

#include <string>
#include <vector>

namespace halvo::daemon {

class ShareHandOff {
  public:
    virtual ~ShareHandOff() = default;

    // Binds the device to the sharing driver and gives it the connected
    // socket `socketFd`, which carries the device's traffic from then on.
    // The caller keeps its own descriptor and closes it.  The reason on
    // failure, with the device given back.
    virtual util::Expected<void> handOver(const Device& device, int socketFd) = 0;

    // Whether the remote host still uses the device (false once it detached
    // or the link broke).
    virtual bool inUse(const Device& device) = 0;

    // Ends the device's traffic (the socket is closed) and gives the device
    // back to its own driver.  The reason when a step failed; the later
    // steps are still tried.
    virtual util::Expected<void> end(const Device& device) = 0;

    // Gives back the devices that an earlier run left with the sharing
    // driver; the ports given back and the problems met.
    struct Recovery {
        std::vector<std::string> ports;
        std::vector<std::string> problems;
    };
    virtual Recovery recoverLeftovers() = 0;
};

} // namespace halvo::daemon
