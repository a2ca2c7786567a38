#include "daemon/core/device_watcher.h"

#include <cstdio>

namespace halvo::daemon {

DeviceWatcher::DeviceWatcher(boost::asio::io_context& io, DeviceBackend& backend,
                             DeviceTable& table, std::chrono::milliseconds period, EventSink sink)
    : backend_(backend), table_(table), period_(period), sink_(std::move(sink)), timer_(io) {}

void DeviceWatcher::start() {
    scheduleNext();
}

void DeviceWatcher::stop() {
    timer_.cancel();
}

void DeviceWatcher::scheduleNext() {
    timer_.expires_after(period_);
    timer_.async_wait([this](const boost::system::error_code& error) {
        if (error) {
            return;
        }
        rescan();
        scheduleNext();
    });
}

void DeviceWatcher::rescan() {
    ScanResult scan = backend_.scan();
    if (!scan.error.empty()) {
        // Said once per distinct failure, not once per period.
        if (scan.error != lastError_) {
            std::fprintf(stderr, "halvod: device scan failed: %s\n", scan.error.c_str());
            lastError_ = scan.error;
        }
        return;
    }
    lastError_.clear();
    for (const Event& event : table_.update(std::move(scan.devices))) {
        sink_(event);
    }
}

} // namespace halvo::daemon
