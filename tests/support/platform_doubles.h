// Test doubles of the daemon's platform interfaces.
#pragma once

#include "daemon/core/bus_monitor.h"
#include "daemon/core/device_backend.h"

#include <utility>
#include <vector>

namespace halvo::testkit {

// A bus that reports the changes the test tells it to.
class ScriptedBusMonitor final : public daemon::BusMonitor {
  public:
    void start(ChangeSink sink) override { sink_ = std::move(sink); }
    void stop() override { sink_ = nullptr; }

    // Whether the watcher listened (it stops listening on stop()).
    bool report(const daemon::BusChange& change) {
        if (!sink_) {
            return false;
        }
        sink_(change);
        return true;
    }

  private:
    ChangeSink sink_;
};

// A bus whose devices the test sets, counting the scans.
class CountingBackend final : public daemon::DeviceBackend {
  public:
    std::vector<daemon::Device> devices;
    int scans = 0;

    daemon::ScanResult scan() override {
        ++scans;
        return daemon::ScanResult{devices, ""};
    }
    util::Expected<void> unplug(const daemon::Device&) override { return {}; }
    bool seesHotplug() const override { return true; }
};

} // namespace halvo::testkit
