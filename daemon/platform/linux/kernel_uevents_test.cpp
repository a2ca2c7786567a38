#include "daemon/platform/linux/kernel_uevents.h"
#include "daemon/platform/linux/uevent_message.h"
#include "tests/support/uevents.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace halvo::daemon {
namespace {

using namespace std::chrono_literals;

// Over a handed-over socket: what the reader reports of each message, and
// that a message too long for its buffer is dropped whole, not cut.
TEST(KernelUeventsTest, ReportsUsbChangesAndDropsWhatIsTooLong) {
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), 0);
    boost::asio::io_context io;
    KernelUevents uevents(io, pair[1], false);
    std::vector<std::string> heard;
    uevents.start([&](const BusChange& change) {
        heard.push_back(change.busid + " " + change.action);
        if (heard.size() == 2) {
            uevents.stop();
        }
    });
    const std::string tooLong = testkit::usbUevent("add", "1-9") +
                                "X=" + std::string(kMaxUeventSize, 'x') + std::string(1, '\0');
    for (const std::string& message :
         {testkit::usbUevent("add", "1-1"), tooLong, testkit::usbUevent("remove", "1-1")}) {
        ASSERT_EQ(::send(pair[0], message.data(), message.size(), 0),
                  static_cast<ssize_t>(message.size()));
    }
    io.run_for(2s);
    EXPECT_EQ(heard, (std::vector<std::string>{"1-1 add", "1-1 remove"}));
    ::close(pair[0]);
}

} // namespace
} // namespace halvo::daemon
