#include "daemon/core/device_table.h"
#include "daemon/core/device_watcher.h"
#include "daemon/platform/linux/sysfs_backend.h"
#include "tests/support/daemon_harness.h"

#include <boost/asio/io_context.hpp>
#include <boost/json/parse.hpp>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace halvo::daemon {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using testkit::TempDir;
using testkit::writeFile;

using testkit::addSysfsEntry;

// A bus with a root hub, a keyboard (class per interface), a storage stick
// with a serial, an external hub, a built-in camera without a product name
// and a device whose authorisation was withdrawn. (That a device this
// machine imports is never offered again is the VM suite's 40-self-import.)
void addSampleBus(const fs::path& root) {
    addSysfsEntry(root / "usb1", "idVendor=1d6b;idProduct=0002;bDeviceClass=09");
    addSysfsEntry(root / "1-1",
                  "idVendor=046d;idProduct=c31c;bcdDevice=0110;bDeviceClass=00;"
                  "product=USB Keyboard;manufacturer=Logitech;removable=removable;authorized=1");
    addSysfsEntry(root / "1-1" / "1-1:1.1", "bInterfaceClass=03;bInterfaceSubClass=00");
    addSysfsEntry(root / "1-1" / "1-1:1.0",
                  "bInterfaceClass=03;bInterfaceSubClass=01;bInterfaceProtocol=01");
    addSysfsEntry(root / "1-1:1.0", "bInterfaceClass=03");
    addSysfsEntry(root / "1-2.3", "idVendor=0781;idProduct=5567;bcdDevice=0100;bDeviceClass=00;"
                                  "product=Cruzer Blade;serial=4C5300;removable=unknown");
    addSysfsEntry(root / "1-2", "idVendor=05e3;idProduct=0610;bDeviceClass=09");
    addSysfsEntry(root / "1-4",
                  "idVendor=04f2;idProduct=b6d9;bcdDevice=5626;bDeviceClass=ef;bDeviceSubClass=02;"
                  "bDeviceProtocol=01;manufacturer=Chicony;removable=fixed");
    addSysfsEntry(root / "2-1", "idVendor=0403;idProduct=6001;authorized=0");
}

json::array listOf(const std::vector<Device>& devices) {
    json::array list;
    for (const Device& device : devices) {
        list.push_back(toListRecord(device));
    }
    return list;
}

TEST(SysfsBackendTest, ReadsDevicesAndLeavesOutHubsAndInterfaces) {
    TempDir root;
    addSampleBus(root.path());
    ScanResult scan = SysfsBackend(root.path()).scan();
    ASSERT_EQ(scan.error, "");
    EXPECT_EQ(listOf(scan.devices), json::parse(R"([
        {"id": 0, "vid": 1133, "pid": 49948, "rev": 272, "port": "1-1", "built-in": false,
         "name": "USB Keyboard", "serial": "", "state": "available", "class": 3, "subclass": 1, "protocol": 1},
        {"id": 0, "vid": 1921, "pid": 21863, "rev": 256, "port": "1-2.3", "built-in": false,
         "name": "Cruzer Blade", "serial": "4C5300", "state": "available", "class": 0, "subclass": 0, "protocol": 0},
        {"id": 0, "vid": 1266, "pid": 46809, "rev": 22054, "port": "1-4", "built-in": true,
         "name": "Chicony", "serial": "", "state": "available", "class": 239, "subclass": 2, "protocol": 1},
        {"id": 0, "vid": 1027, "pid": 24577, "rev": 0, "port": "2-1", "built-in": false,
         "name": "USB device", "serial": "", "state": "unauthorized", "class": 0, "subclass": 0, "protocol": 0}
    ])"));
}

// A read that never returns (here a FIFO without a writer) fails the scan
// instead of blocking its caller; the next scan waits for the stuck one
// rather than start another, and scans work again once it ends.
TEST(SysfsBackendTest, AnAttributeThatDoesNotAnswerFailsTheScanInsteadOfBlockingIt) {
    TempDir root;
    addSysfsEntry(root / "1-1", "idVendor=046d;idProduct=c31c");
    const fs::path stuck = root / "1-1" / "product";
    ASSERT_EQ(::mkfifo(stuck.c_str(), 0600), 0);
    SysfsBackend backend(root.path(), std::chrono::milliseconds(50));
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_NE(backend.scan().error.find("does not answer"), std::string::npos);
    }
    // Unblock the stuck read through the FIFO's new name; later scans read a file.
    const fs::path moved = root / "fifo";
    fs::rename(stuck, moved);
    writeFile(stuck, "Keyboard\n");
    ::close(::open(moved.c_str(), O_WRONLY));
    ScanResult scan;
    for (int attempt = 0; attempt < 100 && scan.devices.empty(); ++attempt) {
        scan = backend.scan();
    }
    EXPECT_EQ(scan.error, "");
    EXPECT_EQ(scan.devices.size(), 1u);
}

TEST(SysfsBackendTest, HotplugBecomesDeviceEventsIdsStayAndAnUnreadableBusChangesNothing) {
    TempDir root;
    addSampleBus(root.path());
    // Watched the way halvod watches it, rescanned on demand.
    SysfsBackend backend(root.path());
    DeviceTable table;
    std::vector<Event> events;
    boost::asio::io_context io;
    DeviceWatcher watcher(io, backend, table, nullptr, std::chrono::milliseconds(1000),
                          [&](const Event& event) { events.push_back(event); });
    watcher.rescan();
    EXPECT_EQ(events.size(), 4u);

    events.clear();
    fs::remove_all(root / "1-2.3");
    addSysfsEntry(root / "1-5", "idVendor=1050;idProduct=0407;product=YubiKey");
    writeFile(root / "2-1" / "authorized", "1\n");
    watcher.rescan();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].payload,
              json::parse(R"({"id": 2, "name": "Cruzer Blade", "state": "unplugged"})"));
    EXPECT_EQ(events[1].payload,
              json::parse(R"({"id": 5, "name": "YubiKey", "state": "plugged"})"));
    EXPECT_EQ(events[2].payload,
              json::parse(R"({"id": 4, "name": "USB device", "state": "available"})"));
    ASSERT_NE(table.find(5), nullptr);
    EXPECT_EQ(table.find(5)->port, "1-5");

    // The same stick plugged in again is a new device with a new id.
    events.clear();
    addSysfsEntry(root / "1-2.3", "idVendor=0781;idProduct=5567;product=Cruzer Blade");
    watcher.rescan();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].payload["id"], 6);

    // A bus that cannot be read changes nothing.
    events.clear();
    fs::rename(root.path(), root.path().string() + ".gone");
    watcher.rescan();
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(table.devices().size(), 5u);
    EXPECT_NE(backend.scan().error, "");
    fs::rename(root.path().string() + ".gone", root.path());
}

TEST(SysfsBackendTest, ReadsTheBusDescriptionThatImportingHostsAreTold) {
    TempDir root;
    addSysfsEntry(root / "devices" / "usb1" / "1-2",
                  "idVendor=0781;idProduct=5567;bDeviceClass=00;busnum=1;devnum=12;"
                  "bConfigurationValue=1;bNumConfigurations=2");
    const fs::path folder = root / "devices" / "usb1" / "1-2";
    addSysfsEntry(folder / "1-2:1.10", "bInterfaceClass=ff");
    addSysfsEntry(folder / "1-2:1.2",
                  "bInterfaceClass=08;bInterfaceSubClass=06;bInterfaceProtocol=50");
    fs::create_directories(root / "bus");
    fs::create_directory_symlink(folder, root / "bus" / "1-2");

    const std::pair<const char*, std::uint32_t> kSpeeds[] = {
        {"1.5", 1}, {"12", 2}, {"480", 3}, {"5000", 5}, {"10000", 6}, {"20000", 6}, {"53.3", 0}};
    for (const auto& [mbits, code] : kSpeeds) {
        writeFile(folder / "speed", std::string(mbits) + "\n");
        ScanResult scan = SysfsBackend(root / "bus").scan();
        ASSERT_EQ(scan.devices.size(), 1u);
        EXPECT_EQ(scan.devices[0].bus.speed, code) << mbits;
    }
    const BusDescription bus = SysfsBackend(root / "bus").scan().devices.at(0).bus;
    EXPECT_EQ(bus.path, fs::canonical(folder).string());
    EXPECT_EQ(std::tuple(bus.busnum, bus.devnum, bus.configurationValue, bus.numConfigurations),
              std::tuple(1u, 12u, std::uint8_t{1}, std::uint8_t{2}));
    ASSERT_EQ(bus.interfaces.size(), 2u);
    EXPECT_EQ(std::tuple(bus.interfaces[0].interfaceClass, bus.interfaces[0].subclass,
                         bus.interfaces[0].protocol),
              std::tuple(std::uint8_t{8}, std::uint8_t{6}, std::uint8_t{0x50}));
    EXPECT_EQ(bus.interfaces[1].interfaceClass, 0xff);
}

} // namespace
} // namespace halvo::daemon
