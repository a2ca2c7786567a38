#include "usbip/wire.h"

#include <gtest/gtest.h>

namespace halvo::usbip {
namespace {

std::string hex(const std::vector<std::uint8_t>& bytes, std::size_t from, std::size_t count) {
    std::string text;
    for (std::size_t index = from; index < from + count; ++index) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", bytes.at(index));
        text += pair;
    }
    return text;
}

// The offsets are the record's layout: path 256, bus id 32, then the numbers.
TEST(UsbipWireTest, EncodesDeviceListsAndImportRepliesBigEndian) {
    DeviceRecord device;
    device.busId = "1-2.3";
    device.vid = 0x0781;
    device.pid = 0x5567;
    device.rev = 0x0100;
    device.path = "/sys/devices/pci0000:00/usb1/1-2/1-2.3";
    device.busnum = 1;
    device.devnum = 7;
    device.speed = 3;
    device.configurationValue = 1;
    device.numConfigurations = 1;
    device.interfaces = {{8, 6, 0x50}, {3, 1, 2}};

    auto list = encodeDeviceList({device});
    ASSERT_EQ(list.size(), kHeaderSize + 4 + kDeviceRecordSize + 2 * kInterfaceRecordSize);
    EXPECT_EQ(hex(list, 0, 12), "011100050000000000000001");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&list[12])), device.path);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&list[12 + 256])), "1-2.3");
    // busnum devnum speed, vid pid rev, class triple, config/configs/interfaces, the interfaces.
    std::string numbers =
        "00000001 00000007 00000003 0781 5567 0100 000000 010102 08065000 03010200";
    std::erase(numbers, ' ');
    EXPECT_EQ(hex(list, 12 + 288, 32), numbers);

    auto refused = encodeImportReply(Status::noDevice);
    EXPECT_EQ(hex(refused, 0, refused.size()), "0111000300000004");
    auto accepted = encodeImportReply(device);
    ASSERT_EQ(accepted.size(), kHeaderSize + kDeviceRecordSize);
    EXPECT_EQ(hex(accepted, 8 + 288, 4), "00000001");
}

} // namespace
} // namespace halvo::usbip
