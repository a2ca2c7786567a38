// Where a shared device's traffic goes: the kernel's usbip-host driver on
// Linux, a simulation for fixtures.  The daemon decides who may import
// what; this hands the device and the importing host's socket over, and
// takes the device back when the share ends.
#pragma once

#include "daemon/core/device.h"
#include "util/expected.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::daemon {

// Whether a remote host still uses a shared device, and if not, why.
enum class ShareUse { inUse, released, deviceGone };

class ShareHandOff {
  public:
    using Done = std::function<void(util::Expected<void>)>;

    virtual ~ShareHandOff() = default;

    // Binds the device to the sharing driver and gives it the connected
    // socket `socketFd`, which carries the device's traffic from then on,
    // without holding the caller's event loop: `done` hears on that loop how
    // it went (the reason on failure, with the device given back).  The
    // hand-off takes its own descriptor of the socket before it returns: the
    // caller keeps its own and may close it at any time.
    virtual void handOver(const Device& device, int socketFd, Done done) = 0;

    // inUse while the remote host uses the device; released once it
    // detached or the link broke; deviceGone once the device left the bus.
    virtual ShareUse use(const Device& device) = 0;

    // Ends the device's traffic (the socket is closed) and gives the device
    // back to its own driver, without holding the caller's event loop:
    // `ended` hears on that loop how it went (the reason when a step failed;
    // the later steps are still tried).
    virtual void end(const Device& device, Done ended) = 0;

    // Whether the device on `port` is being handed over or given back: it
    // cannot be handed over again until then.
    virtual bool busy(std::string_view port) const = 0;

    // Calls `idle` (on that loop) once no device is being handed over or
    // given back; at once when none is.
    virtual void whenIdle(std::function<void()> idle) = 0;

    // A device on `port` came or was bound to a driver: what the sharing
    // driver still holds for that port from a device that went away can be
    // freed now.
    virtual void portChanged(const std::string& port) = 0;

    // Gives back the devices that an earlier run left with the sharing
    // driver, and frees what it holds for ports whose device went away; the
    // ports given back and the problems met.
    struct Recovery {
        std::vector<std::string> ports;
        std::vector<std::string> problems;
    };
    virtual Recovery recoverLeftovers() = 0;
};

} // namespace halvo::daemon
