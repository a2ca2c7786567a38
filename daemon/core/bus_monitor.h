// Where the daemon learns, as it happens, that a device on the USB bus
// came, went or changed, so that it rescans at once instead of
// periodically.  The kernel's uevents on Linux (see platform/bus_events.h);
// tests inject their own.
#pragma once

#include <functional>
#include <string>

namespace halvo::daemon {

struct BusChange {
    // The device's bus id ("1-2.3"), also for a change of one of its
    // interfaces.  Empty when reports were lost and any device may have
    // changed.
    std::string busid;
    // "add", "remove", "change", "move", "bind" or "unbind"; "lost" with an
    // empty bus id.
    std::string action;
};

class BusMonitor {
  public:
    using ChangeSink = std::function<void(const BusChange&)>;

    virtual ~BusMonitor() = default;

    // Reports every change to `sink`, on the daemon's event loop, until
    // stop().
    virtual void start(ChangeSink sink) = 0;
    virtual void stop() = 0;
};

} // namespace halvo::daemon
