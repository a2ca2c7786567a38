// Hot-plug: rescans the device backend periodically and turns what changed
// into device events.
#pragma once

#include "daemon/core/device_backend.h"
#include "daemon/core/device_table.h"
#include "daemon/core/event.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <string>

namespace halvo::daemon {

class DeviceWatcher {
  public:
    using EventSink = std::function<void(const Event&)>;

    DeviceWatcher(boost::asio::io_context& io, DeviceBackend& backend, DeviceTable& table,
                  std::chrono::milliseconds period, EventSink sink);

    void start();
    void stop();

    // One rescan, now.  A failed scan changes nothing (a bus that cannot be
    // read for a moment must not look like every device unplugged).
    void rescan();

  private:
    void scheduleNext();

    DeviceBackend& backend_;
    DeviceTable& table_;
    std::chrono::milliseconds period_;
    EventSink sink_;
    boost::asio::steady_timer timer_;
    std::string lastError_;
};

} // namespace halvo::daemon
