#include "attach/vhci.h"

#include <gtest/gtest.h>

namespace halvo::attach {
namespace {

// As vhci-hcd shows a controller with one device on each hub (ports 0 and 9).
const char* const kStatus = "hub port sta spd dev      sockfd local_busid\n"
                            "hs  0000 006 003 00010004 000005 3-1\n"
                            "hs  0001 004 000 00000000 000000 0-0\n"
                            "hs  0002 004 000 00000000 000000 0-0\n"
                            "ss  0008 004 000 00000000 000000 0-0\n"
                            "ss  0009 006 005 00020007 000006 4-2\n"
                            "garbage\n";

TEST(VhciTest, ReadsThePortTable) {
    const std::vector<VhciPort> ports = parseVhciStatus(kStatus);
    ASSERT_EQ(ports.size(), 5u);
    EXPECT_TRUE(ports[0].used && !ports[0].superSpeed);
    EXPECT_EQ(ports[0].devid, 0x00010004u);
    EXPECT_EQ(ports[0].localBusId, "3-1");
    EXPECT_TRUE(!ports[3].used && ports[3].superSpeed && ports[3].number == 8);
    EXPECT_EQ(ports[4].speed, 5u);
}

TEST(VhciTest, PicksTheLowestFreePortOfTheDevicesHubAndWritesItsAttachLine) {
    const std::vector<VhciPort> ports = parseVhciStatus(kStatus);
    std::vector<VhciPort> highFull = ports;
    highFull[1].used = highFull[2].used = true;
    struct Case {
        std::uint32_t speed;
        const std::vector<VhciPort>* ports;
        std::string line; // or the start of the error
    };
    const Case cases[] = {
        {1, &ports, "1 7 65540 1"},
        {2, &ports, "1 7 65540 2"},
        {3, &ports, "1 7 65540 3"},
        {4, &ports, "1 7 65540 4"},
        {5, &ports, "8 7 65540 5"},
        {6, &ports, "8 7 65540 5"},
        {3, &highFull, "no free high-speed port"},
        {0, &ports, "the server gives the device speed code 0"},
        {7, &ports, "the server gives the device speed code 7"},
    };
    for (const Case& test : cases) {
        usbip::DeviceRecord device;
        device.busnum = 1;
        device.devnum = 4;
        device.speed = test.speed;
        auto port = choosePort(*test.ports, test.speed);
        const std::string got = port ? attachLine(*port, 7, device) : port.error();
        EXPECT_EQ(got.substr(0, test.line.size()), test.line) << "speed " << test.speed;
    }
}

} // namespace
} // namespace halvo::attach
