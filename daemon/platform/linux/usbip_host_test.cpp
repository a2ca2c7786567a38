#include "daemon/platform/linux/usbip_host.h"
#include "tests/support/daemon_harness.h"

#include <boost/asio/post.hpp>
#include <fcntl.h>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <unistd.h>

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
        if (relative.ends_with("usbip_sockfd") && value != "-1") {
            // The number of a descriptor that must be open while it is written.
            const bool open = ::fcntl(std::stoi(std::string(value)), F_GETFD) >= 0;
            writes.push_back(relative + (open ? " open fd" : " closed fd"));
        } else {
            writes.push_back(relative + " " + std::string(value));
        }
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
        // The caller may close its descriptor as soon as handOver returns.
        {"hand over a device usbip-host holds already",
         [](Bus& bus, UsbipHost& host) {
             bus.plug("1-3", "usbip-host");
             const int socket = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
             host.handOver(at("1-3"), socket, [](util::Expected<void> done) { EXPECT_TRUE(done); });
             ::close(socket);
         },
         {"drivers/usbip-host/match_busid add 1-3", "devices/1-3/usbip_sockfd open fd"}},
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
            EXPECT_FALSE(host.busy("1-4")) << test.what;
        }
        EXPECT_EQ(bus.writes, test.writes) << test.what;
        EXPECT_TRUE(bus.table.empty()) << test.what;
    }
}

// A hand-over or a give-back that the kernel takes its time over (usb-storage
// lets a disk go slowly) runs beside the loop: the loop goes on, and the
// device counts as busy (the hand-off as not idle) until the outcome arrives.
TEST(UsbipHostTest, AHandOverOrAGiveBackDoesNotHoldTheLoop) {
    for (const bool handOver : {true, false}) {
        Bus bus;
        bus.plug("1-2", handOver ? "usb" : "usbip-host", handOver ? "1" : "2");
        bus.listTable({"1-2"});
        const fs::path slow = handOver ? "devices/1-2/driver/unbind" : "devices/1-2/usbip_sockfd";
        std::promise<void> kernelDone;
        std::shared_future<void> released = kernelDone.get_future().share();
        UsbipHost host(bus.loop, bus.root / "devices",
                       [&bus, slow, released](const fs::path& file, std::string_view value) {
                           if (file.lexically_relative(bus.root.path()) == slow) {
                               released.wait();
                           }
                           return bus.write(file, value);
                       });
        bool done = false;
        const auto outcome = [&done](util::Expected<void> result) { done = result.has_value(); };
        if (handOver) {
            host.handOver(at("1-2"), STDERR_FILENO, outcome);
            host.portChanged("1-2"); // the uevent of its own bind: no reason to free
        } else {
            host.end(at("1-2"), outcome);
        }
        bool loopRan = false;
        boost::asio::post(bus.loop, [&loopRan] { loopRan = true; });
        bool idle = false;
        host.whenIdle([&idle] { idle = true; });
        bus.loop.poll();
        EXPECT_TRUE(loopRan && host.busy("1-2")) << slow;
        EXPECT_FALSE(done || idle) << slow;
        kernelDone.set_value();
        bus.loop.run_one();
        EXPECT_TRUE(done && idle) << slow;
        EXPECT_FALSE(host.busy("1-2")) << slow;
        bus.loop.run();
        EXPECT_EQ(bus.table.empty(), !handOver) << slow;
    }
}

} // namespace
} // namespace halvo::daemon
