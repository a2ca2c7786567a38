#include "daemon/core/device_watcher.h"

#include <cstdio>

namespace halvo::daemon {

DeviceWatcher::DeviceWatcher(boost::asio::io_context& io, DeviceBackend& backend,
                             DeviceTable& table, BusMonitor* busEvents,
                             std::chrono::milliseconds fallbackPeriod, EventSink sink)
    : backend_(backend), table_(table), busEvents_(busEvents), fallbackPeriod_(fallbackPeriod),
      sink_(std::move(sink)), timer_(io) {}

void DeviceWatcher::start() {
    if (busEvents_ != nullptr) {
        busEvents_->start([this](const BusChange& change) { changed(change); });
    } else {
        scheduleNext();
    }
}

void DeviceWatcher::stop() {
    if (busEvents_ != nullptr) {
        busEvents_->stop();
    }
    timer_.cancel();
}

void DeviceWatcher::observeChanges(ChangeObserver observer) {
    observers_.push_back(std::move(observer));
}

void DeviceWatcher::scheduleNext() {
    timer_.expires_after(fallbackPeriod_);
    timer_.async_wait([this](const boost::system::error_code& error) {
        if (error) {
            return;
        }
        rescan();
        scheduleNext();
    });
}

void DeviceWatcher::changed(const BusChange& change) {
    for (const ChangeObserver& observer : observers_) {
        observer(change);
    }
    if (rescanPending_) {
        return;
    }
    rescanPending_ = true;
    timer_.expires_after(kCoalescing);
    timer_.async_wait([this](const boost::system::error_code& error) {
        rescanPending_ = false;
        if (!error) {
            rescan();
        }
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
