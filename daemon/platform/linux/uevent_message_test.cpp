#include "daemon/platform/linux/uevent_message.h"

#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

using namespace std::string_literals;

const std::string kDevpath = "/devices/pci0000:00/0000:00:14.0/usb1/1-2/1-2.3";

// The fields of a well-formed report of the device 1-2.3 (or one of its
// interfaces), each ended by a NUL byte.
std::string report(const std::string& action, const std::string& devpath = kDevpath,
                   const std::string& subsystem = "usb", const std::string& type = "usb_device") {
    return action + "@" + devpath + '\0' + "ACTION=" + action + '\0' + "DEVPATH=" + devpath + '\0' +
           "SUBSYSTEM=" + subsystem + '\0' + "DEVTYPE=" + type + '\0' + "SEQNUM=4711" + '\0';
}

TEST(UeventMessageTest, ReportsUsbDeviceChangesOnlyFromTheKernel) {
    struct Case {
        const char* what;
        std::string message;
        std::uint32_t sender;
        std::string expected; // "busid action", or why there is no change
    };
    const std::string noAction = "add@/devices/usb1/1-2\0DEVPATH=/devices/usb1/1-2\0"
                                 "SUBSYSTEM=usb\0DEVTYPE=usb_device\0"s;
    const Case cases[] = {
        {"device plugged", report("add"), 0, "1-2.3 add"},
        {"interface unbound", report("unbind", kDevpath + ":1.0", "usb", "usb_interface"), 0,
         "1-2.3 unbind"},
        {"another subsystem", report("add", "/devices/virtual/net/veth0", "net"), 0,
         "not a usb report"},
        {"endpoint", report("add", kDevpath + "/ep_81", "usb", "usb_endpoint"), 0,
         "not a usb device or interface"},
        {"no ACTION field", noAction, 0, "ACTION or DEVPATH missing or unlike the header"},
        {"ACTION unlike header", "remove@" + report("add").substr(4), 0,
         "ACTION or DEVPATH missing or unlike the header"},
        {"truncated", report("add").substr(0, 60), 0, "truncated"},
        {"oversized", report("add") + "X=" + std::string(kMaxUeventSize, 'x') + '\0', 0,
         "longer than 8192 bytes"},
        {"another sender", report("add"), 4242, "not from the kernel"},
        {"udev's re-send", "libudev\0\xfe\xed\xca\xfe"s + report("add"), 0,
         "no ACTION@DEVPATH header"},
        {"field without =", "add@/devices/usb1/1-2\0ACTION\0"s, 0, "a field is not KEY=VALUE"},
        {"repeated field", report("add") + "SUBSYSTEM=usb" + '\0', 0, "field SUBSYSTEM repeated"},
        {"unknown action", report("online"), 0, "action online does not change the bus"},
        {"odd bus id", report("add", "/devices/usb1/1-2%s"), 0, "no bus id in DEVPATH"},
    };
    for (const Case& c : cases) {
        auto parsed = parseUevent(c.message, c.sender);
        const std::string got = parsed ? parsed->busid + " " + parsed->action : parsed.error();
        EXPECT_EQ(got, c.expected) << c.what;
    }
}

} // namespace
} // namespace halvo::daemon
