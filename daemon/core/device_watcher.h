// Hot-plug: rescans the device backend when the bus reports a change (or,
// where nothing reports changes, periodically) and turns what changed into
// device events.
#pragma once

#include "daemon/core/bus_monitor.h"
#include "daemon/core/device_backend.h"
#include "daemon/core/device_table.h"
#include "daemon/core/event.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace halvo::daemon {

class DeviceWatcher {
  public:
    using EventSink = std::function<void(const Event&)>;
    using ChangeObserver = std::function<void(const BusChange&)>;

    // A plug is reported several times in a few milliseconds (the device,
    // its interfaces, their drivers): one rescan after the first report
    // covers them all.
    static constexpr std::chrono::milliseconds kCoalescing{3};

    // `busEvents` may be null: the backend is then rescanned every
    // `fallbackPeriod`.
    DeviceWatcher(boost::asio::io_context& io, DeviceBackend& backend, DeviceTable& table,
                  BusMonitor* busEvents, std::chrono::milliseconds fallbackPeriod, EventSink sink);

    void start();
    void stop();

    // One rescan, now.  A failed scan changes nothing (a bus that cannot be
    // read for a moment must not look like every device unplugged).
    void rescan();

    // `observer` hears of every bus change as it is reported, before the
    // rescan it causes.
    void observeChanges(ChangeObserver observer);

  private:
    void scheduleNext();
    void changed(const BusChange& change);

    DeviceBackend& backend_;
    DeviceTable& table_;
    BusMonitor* busEvents_;
    std::chrono::milliseconds fallbackPeriod_;
    EventSink sink_;
    std::vector<ChangeObserver> observers_;
    boost::asio::steady_timer timer_;
    bool rescanPending_ = false;
    std::string lastError_;
};

} // namespace halvo::daemon
