#include "daemon/platform/linux/usbip_host.h"
#include "tests/support/daemon_harness.h"

#include <boost/asio/post.hpp>
#include <functional>
#include <future>
#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

namespace fs = std::filesystem;

// A USB bus folder as the kernel shows it, and the part of usbip-host that
// the hand-off steers: its match table (a busid stays listed after "del"
// until rebind), binding, unbinding. Each write is recorded as "PATH VALUE"
// (relative to the bus folder); a write to `refused` fails.
struct Bus {
    Bus() {
        for (const char* driver : {"usb", "usbip-host"}) {
            fs::create_directories(root / "drivers" / driver);
        }
        listTable({});
    }
    void plug(const std::string& port, const char* driver, const char* status = "1") {
        testkit::addSysfsEntry(root / "devices" / port, std::string("usbip_status=") + status);
        bind(port, driver);
    }
    void bind(const std::string& port, std::string_view driver) {
        fs::remove(root / "devices" / port / "driver");
        if (!driver.empty()) {
            fs::create_directory_symlink("../../drivers/" + std::string(driver),
                                         root / "devices" / port / "driver");
        }
    }
    void listTable(const std::vector<std::string>& ports) {
        table = ports;
        std::string text;
        for (const std::string& port : ports) {
            text += port + " ";
        }
        testkit::writeFile(root / "drivers" / "usbip-host" / "match_busid", text + "\n");
    }
    util::Expected<void> write(const fs::path& file, std::string_view value) {
        const std::string relative = file.lexically_relative(root.path()).string();
        writes.push_back(relative + " " + std::string(value));
        if (relative == refused) {
            return util::Failure{"refused"};
        }
        const std::string port(value);
        const bool listed = std::find(table.begin(), table.end(), port) != table.end();
        if (relative == "drivers/usbip-host/bind" && listed) {
            bind(port, "usbip-host");
        } else if (relative.ends_with("/unbind")) {
            bind(port, "");
        } else if (relative == "drivers/usbip-host/rebind" || relative == "drivers_probe") {
            bind(port, "usb");
            std::erase(table, port);
            listTable(table);
        } else if (relative.ends_with("usbip_sockfd") && value == "-1") {
            testkit::writeFile(file.parent_path() / "usbip_status", "1\n");
        }
        return {};
    }
    UsbipHost host() {
        return UsbipHost(
            loop, root / "devices",
            [this](const fs::path& file, std::string_view value) { return write(file, value); });
    }

    testkit::TempDir root;
    boost::asio::io_context loop;
    std::vector<std::string> table;
    std::vector<std::string> writes;
    std::string refused;
};

Device at(std::string port) {
    Device device;
    device.port = std::move(port);
    return device;
}

// The common paths (hand over, every way a share ends, a device pulled out
// while shared and plugged back, the start-up clean-up) are the VM suite's,
// on the real usbip-host (tests/vm/checks); these are the paths the real
// kernel does not take there.
TEST(UsbipHostTest, WritesTheKernelsStepsInOrder) {
    struct Case {
        const char* what;
        std::function<void(Bus&, UsbipHost&)> act;
        std::vector<std::string> writes;
    };
    const Case cases[] = {
        {"hand over a device usbip-host holds already",
         [](Bus& bus, UsbipHost& host) {
             bus.plug("1-3", "usbip-host");
             EXPECT_TRUE(host.handOver(at("1-3"), 9).has_value());
         },
         {"drivers/usbip-host/match_busid add 1-3", "devices/1-3/usbip_sockfd 9\n"}},
        {"the bus probes when rebind is refused",
         [](Bus& bus, UsbipHost& host) {
             bus.plug("1-2", "usbip-host", "2");
             bus.listTable({"1-2"});
             bus.refused = "drivers/usbip-host/rebind";
             host.end(at("1-2"), [](util::Expected<void> ended) { EXPECT_TRUE(ended); });
         },
         {"devices/1-2/usbip_sockfd -1", "drivers/usbip-host/unbind 1-2",
          "drivers/usbip-host/match_busid del 1-2", "drivers/usbip-host/rebind 1-2",
          "drivers_probe 1-2"}},
        // An earlier run's slots: 1-3 still holds its device; 1-4's device
        // went away, and the device that comes there later is with its own
        // driver, so usbip-host must take it before rebind may reach for it.
        {"start-up frees the slots it finds, one when its port has a device again",
         [](Bus& bus, UsbipHost& host) {
             bus.plug("1-3", "usbip-host");
             bus.plug("1-2", "usb");
             bus.listTable({"1-3", "1-4"});
             EXPECT_EQ(host.recoverLeftovers().ports, std::vector<std::string>{"1-3"});
             host.portChanged("1-2");
             bus.plug("1-4", "usb");
             host.portChanged("1-4");
         },
         {"drivers/usbip-host/unbind 1-3", "drivers/usbip-host/match_busid del 1-3",
          "drivers/usbip-host/rebind 1-3", "devices/1-4/driver/unbind 1-4",
          "drivers/usbip-host/bind 1-4", "drivers/usbip-host/unbind 1-4",
          "drivers/usbip-host/match_busid del 1-4", "drivers/usbip-host/rebind 1-4"}},
    };
    for (const Case& test : cases) {
        Bus bus;
        {
            UsbipHost host = bus.host();
            test.act(bus, host);
            bus.loop.run();
            EXPECT_FALSE(host.givingBack("1-4")) << test.what;
        }
        EXPECT_EQ(bus.writes, test.writes) << test.what;
        EXPECT_TRUE(bus.table.empty()) << test.what;
    }
}

// A give-back that the kernel takes its time over runs beside the loop: the
// loop goes on, and the device counts as still being given back (and the
// hand-off as busy) until the outcome arrives.
TEST(UsbipHostTest, AGiveBackDoesNotHoldTheLoop) {
    Bus bus;
    bus.plug("1-2", "usbip-host", "2");
    bus.listTable({"1-2"});
    std::promise<void> kernelDone;
    std::shared_future<void> released = kernelDone.get_future().share();
    UsbipHost host(bus.loop, bus.root / "devices",
                   [&bus, released](const fs::path& file, std::string_view value) {
                       if (value == "-1") {
                           released.wait();
                       }
                       return bus.write(file, value);
                   });
    bool ended = false;
    host.end(at("1-2"), [&ended](util::Expected<void>) { ended = true; });
    bool loopRan = false;
    boost::asio::post(bus.loop, [&loopRan] { loopRan = true; });
    bool idle = false;
    host.whenIdle([&idle] { idle = true; });
    bus.loop.poll();
    EXPECT_TRUE(loopRan);
    EXPECT_FALSE(ended);
    EXPECT_FALSE(idle);
    EXPECT_TRUE(host.givingBack("1-2"));
    kernelDone.set_value();
    bus.loop.run_one();
    EXPECT_TRUE(ended);
    EXPECT_TRUE(idle);
    EXPECT_FALSE(host.givingBack("1-2"));
    EXPECT_TRUE(bus.table.empty());
}

} // namespace
} // namespace halvo::daemon
