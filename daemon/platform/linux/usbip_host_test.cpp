#include "daemon/platform/linux/usbip_host.h"
#include "tests/support/daemon_harness.h"

#include <functional>
#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

namespace fs = std::filesystem;

// A USB bus folder as the kernel shows it: the stick 1-2 bound to the
// generic driver, 1-3 left with usbip-host by an earlier run.
struct Bus {
    Bus() {
        for (const char* driver : {"usb", "usbip-host"}) {
            fs::create_directories(root / "drivers" / driver);
        }
        testkit::addSysfsEntry(root / "devices" / "1-2", "usbip_status=1");
        fs::create_directory_symlink("../../drivers/usb", root / "devices" / "1-2" / "driver");
        testkit::addSysfsEntry(root / "devices" / "1-3", "usbip_status=1");
        fs::create_directory_symlink("../../drivers/usbip-host",
                                     root / "devices" / "1-3" / "driver");
    }
    // Records each write as "PATH VALUE" (relative to the bus folder); a
    // write to `refused` fails; "-1" to usbip_sockfd ends the connection.
    UsbipHost host() {
        return UsbipHost(root / "devices", [this](const fs::path& file, std::string_view value) {
            const std::string relative = file.lexically_relative(root.path()).string();
            writes.push_back(relative + " " + std::string(value));
            if (file.filename() == "usbip_sockfd" && value == "-1") { // the connection ends
                testkit::writeFile(file.parent_path() / "usbip_status", "1\n");
            }
            if (relative == refused) {
                return util::Expected<void>(util::Failure{"refused"});
            }
            return util::Expected<void>();
        });
    }

    testkit::TempDir root;
    std::vector<std::string> writes;
    std::string refused;
};

Device stick() {
    Device device;
    device.port = "1-2";
    return device;
}

TEST(UsbipHostTest, WritesTheKernelsStepsInOrder) {
    const std::vector<std::string> kGiveBack = {"drivers/usbip-host/unbind 1-2",
                                                "drivers/usbip-host/match_busid del 1-2",
                                                "drivers/usbip-host/rebind 1-2"};
    struct Case {
        const char* what;
        std::function<util::Expected<void>(Bus&, UsbipHost&)> act;
        std::vector<std::string> writes;
    };
    const Case cases[] = {
        {"hand over",
         [](Bus&, UsbipHost& host) { return host.handOver(stick(), 9); },
         {"drivers/usbip-host/match_busid add 1-2", "devices/1-2/driver/unbind 1-2",
          "drivers/usbip-host/bind 1-2", "devices/1-2/usbip_sockfd 9\n"}},
        {"hand over a device usbip-host holds already",
         [](Bus&, UsbipHost& host) {
             Device held = stick();
             held.port = "1-3";
             return host.handOver(held, 9);
         },
         {"drivers/usbip-host/match_busid add 1-3", "devices/1-3/usbip_sockfd 9\n"}},
        {"end while in use",
         [](Bus& bus, UsbipHost& host) {
             testkit::writeFile(bus.root / "devices" / "1-2" / "usbip_status", "2\n");
             return host.end(stick());
         },
         {"devices/1-2/usbip_sockfd -1", kGiveBack[0], kGiveBack[1], kGiveBack[2]}},
        {"end after the host detached", [](Bus&, UsbipHost& host) { return host.end(stick()); },
         kGiveBack},
        {"start-up clean-up",
         [](Bus&, UsbipHost& host) {
             ShareHandOff::Recovery recovery = host.recoverLeftovers();
             EXPECT_EQ(recovery.ports, std::vector<std::string>{"1-3"});
             return util::Expected<void>();
         },
         {"drivers/usbip-host/unbind 1-3", "drivers/usbip-host/match_busid del 1-3",
          "drivers/usbip-host/rebind 1-3"}},
        {"the bus probes when rebind is refused",
         [](Bus& bus, UsbipHost& host) {
             bus.refused = "drivers/usbip-host/rebind";
             return host.end(stick());
         },
         {kGiveBack[0], kGiveBack[1], kGiveBack[2], "drivers_probe 1-2"}},
        {"end after the device went away",
         [](Bus& bus, UsbipHost& host) {
             fs::remove_all(bus.root / "devices" / "1-2");
             return host.end(stick());
         },
         {kGiveBack[0], kGiveBack[1]}},
    };
    for (const Case& test : cases) {
        Bus bus;
        UsbipHost host = bus.host();
        EXPECT_TRUE(test.act(bus, host).has_value()) << test.what;
        EXPECT_EQ(bus.writes, test.writes) << test.what;
    }
}

} // namespace
} // namespace halvo::daemon
