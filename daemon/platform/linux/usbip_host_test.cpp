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
    // write to `refused` fails.
    UsbipHost host() {
        return UsbipHost(root / "devices", [this](const fs::path& file, std::string_view value) {
            const std::string relative = file.lexically_relative(root.path()).string();
            writes.push_back(relative + " " + std::string(value));
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

// The common paths (hand over, every way a share ends, the start-up clean-up)
// are the VM suite's, on the real usbip-host (tests/vm/checks); these are the
// paths the real kernel does not take there.
TEST(UsbipHostTest, WritesTheKernelsStepsInOrder) {
    struct Case {
        const char* what;
        std::function<util::Expected<void>(Bus&, UsbipHost&)> act;
        std::vector<std::string> writes;
    };
    const Case cases[] = {
        {"hand over a device usbip-host holds already",
         [](Bus&, UsbipHost& host) {
             Device held = stick();
             held.port = "1-3";
             return host.handOver(held, 9);
         },
         {"drivers/usbip-host/match_busid add 1-3", "devices/1-3/usbip_sockfd 9\n"}},
        {"the bus probes when rebind is refused",
         [](Bus& bus, UsbipHost& host) {
             bus.refused = "drivers/usbip-host/rebind";
             return host.end(stick());
         },
         {"drivers/usbip-host/unbind 1-2", "drivers/usbip-host/match_busid del 1-2",
          "drivers/usbip-host/rebind 1-2", "drivers_probe 1-2"}},
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
