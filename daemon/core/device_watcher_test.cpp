#include "daemon/core/device_watcher.h"
#include "tests/support/platform_doubles.h"

#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

using namespace std::chrono_literals;
using testkit::CountingBackend;
using testkit::ScriptedBusMonitor;

Device keyboard() {
    Device device;
    device.vid = 0x046d;
    device.pid = 0xc31c;
    device.port = "1-1";
    device.name = "Keyboard";
    device.state = "available";
    return device;
}

TEST(DeviceWatcherTest, ReportsOfOnePlugBecomeOneRescanAndNoPeriodicOnes) {
    boost::asio::io_context io;
    CountingBackend backend;
    DeviceTable table;
    ScriptedBusMonitor bus;
    std::vector<Event> events;
    std::vector<std::string> heard;
    DeviceWatcher watcher(io, backend, table, &bus, 1ms,
                          [&](const Event& event) { events.push_back(event); });
    watcher.observeChanges(
        [&](const BusChange& change) { heard.push_back(change.busid + " " + change.action); });
    watcher.start();

    backend.devices = {keyboard()};
    ASSERT_TRUE(bus.report({"1-1", "add"}));
    bus.report({"1-1", "bind"});
    bus.report({"1-1", "add"});
    io.run_for(50ms);
    EXPECT_EQ(backend.scans, 1);
    EXPECT_EQ(heard, (std::vector<std::string>{"1-1 add", "1-1 bind", "1-1 add"}));
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].payload["state"], "plugged");

    bus.report({"", "lost"});
    io.restart();
    io.run_for(20ms);
    EXPECT_EQ(backend.scans, 2);

    watcher.stop();
    EXPECT_FALSE(bus.report({"1-1", "remove"}));
}

TEST(DeviceWatcherTest, WithoutReportsTheBusIsRescannedPeriodically) {
    boost::asio::io_context io;
    CountingBackend backend;
    DeviceTable table;
    DeviceWatcher watcher(io, backend, table, nullptr, 5ms, [](const Event&) {});
    watcher.start();
    io.run_for(100ms);
    EXPECT_GE(backend.scans, 3);
}

} // namespace
} // namespace halvo::daemon
