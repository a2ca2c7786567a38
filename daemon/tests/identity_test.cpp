// Who halvod thinks a client is, tried as an attacker would: a local client
// that closes before the daemon takes its connection, and a host on another
// machine (a second network namespace behind a veth pair) that picks the
// port of a listener as its source port.  Neither may change anything.
#include "daemon/control/request_handler.h"
#include "link/packet.h"
#include "tests/support/daemon_harness.h"
#include "tests/support/private_network.h"
#include "tests/support/process_runner.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/json/value_to.hpp>
#include <gtest/gtest.h>
#include <signal.h>

#if defined(__linux__)
#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace halvo::daemon {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using testkit::DaemonProcess;

const std::string kDemo = HALVOD_DEMO_DIR;
constexpr std::uint16_t kControlPort = 32999;
const boost::json::object kUnplugReceiver{{"id", 1}};
constexpr std::string_view kRefusal =
    "refused to unplug a device: permission denied HALVO_UID=none";

bool receiverPresent() {
    return testkit::runHalvoctl({"dev", "list"}).out.find("USB Receiver") != std::string::npos;
}

class Identity : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        static const bool isolated = testkit::isolateDaemonPort(true);
        privateNetwork = isolated;
    }
    static inline bool privateNetwork = false;
};

// The client's socket is a TIME_WAIT or FIN_WAIT2 remnant when the daemon
// takes the connection; the kernel reports such remnants as root's.
TEST_F(Identity, AClientThatClosedBeforeItWasTakenIsNobody) {
    auto daemon =
        DaemonProcess::start({"--listen", "127.0.0.1:32999", "--devices", kDemo + "/devices.json"});
    ASSERT_TRUE(daemon);
    daemon->signal(SIGSTOP);
    {
        testkit::TestClient early(kControlPort);
        ASSERT_TRUE(early.send(link::CommandCode::disconnectDevice, kUnplugReceiver));
    }
    daemon->signal(SIGCONT);
    EXPECT_TRUE(testkit::eventually([&] {
        return daemon->errorOutput().find(kRefusal) != std::string::npos;
    })) << daemon->errorOutput();
    EXPECT_TRUE(receiverPresent());
}

#if defined(__linux__)

// The test is root of its own user namespace only until it starts a
// program: the programs keep its network powers, so that ip(8) and
// nsenter(1) can build the link.  Root needs nothing.
bool passCapabilitiesOn() {
    if (::geteuid() == 0) {
        return true;
    }
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2]{};
    if (::syscall(SYS_capget, &header, sets) != 0) {
        return false;
    }
    for (auto& set : sets) {
        set.inheritable = set.permitted;
    }
    return ::syscall(SYS_capset, &header, sets) == 0 &&
           ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_ADMIN, 0, 0) == 0 &&
           ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_SYS_ADMIN, 0, 0) == 0;
}

// A second network namespace, "another machine", joined to this one by a
// veth pair: 10.99.0.1 and fd99::1 here, 10.99.0.2 and fd99::2 there.
class OtherHost {
  public:
    bool make() {
        here_ = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        if (here_ < 0 || ::unshare(CLONE_NEWNET) != 0) {
            return false;
        }
        // Inherited by the programs below, which name it as theirs.
        there_ = ::open("/proc/self/ns/net", O_RDONLY);
        if (::setns(here_, CLONE_NEWNET) != 0 || there_ < 0 || !passCapabilitiesOn()) {
            return false;
        }
        const std::string there = "/proc/self/fd/" + std::to_string(there_);
        const std::string script =
            "set -e; ip link add halvo-here type veth peer name halvo-there netns " + there +
            "\nip addr add 10.99.0.1/24 dev halvo-here; ip addr add fd99::1/64 dev halvo-here "
            "nodad; ip link set halvo-here up\nnsenter --net=" +
            there +
            " sh -ec 'ip addr add 10.99.0.2/24 dev halvo-there; ip addr add fd99::2/64 dev "
            "halvo-there nodad; ip link set halvo-there up; ip link set lo up'";
        return testkit::runProgram("/bin/sh", {"-c", script}).status == 0;
    }
    ~OtherHost() {
        ::close(here_);
        ::close(there_);
    }

    // A connection from `from` on the other host to `to` here.
    tcp::socket connect(asio::io_context& io, const tcp::endpoint& from, const tcp::endpoint& to) {
        tcp::socket socket(io);
        if (::setns(there_, CLONE_NEWNET) == 0) {
            socket.open(from.protocol());
            ::setns(here_, CLONE_NEWNET);
            socket.bind(from);
            socket.connect(to);
        }
        return socket;
    }

  private:
    int here_ = -1;
    int there_ = -1;
};

// The status the daemon answers to an unplug.
std::string unplugStatus(tcp::socket& socket) {
    asio::write(socket, asio::buffer(link::encodePacket(
                            link::code(link::CommandCode::disconnectDevice), kUnplugReceiver)));
    std::array<unsigned char, link::kHeaderSize> header{};
    asio::read(socket, asio::buffer(header));
    std::string payload(std::min<std::size_t>(link::decodeHeader(header.data()).size, 4096), '\0');
    asio::read(socket, asio::buffer(payload));
    auto reply = link::decodePayload(payload);
    const auto* object = std::get_if<boost::json::object>(&reply);
    return object && object->contains("status")
               ? boost::json::value_to<std::string>(object->at("status"))
               : payload;
}

// The kernel, asked for a socket it does not have, may describe a listener
// on the peer's port instead: the daemon's own (source port 32999) or any
// other.  A peer on another host has no user here whatever its port.
TEST_F(Identity, AHostElsewhereIsNobodyWhateverItsSourcePort) {
    OtherHost other;
    if (!privateNetwork || !other.make()) {
        GTEST_SKIP() << "needs network namespaces and veth links";
    }
    asio::io_context io;
    tcp::acceptor listener(io, tcp::endpoint(tcp::v6(), 0));
    auto daemon = DaemonProcess::start(
        {"--listen", "[::]:32999", "--allow-remote", "--devices", kDemo + "/devices.json"});
    ASSERT_TRUE(daemon);
    for (const auto& [from, to] : {std::pair{"10.99.0.2", "10.99.0.1"}, {"fd99::2", "fd99::1"}}) {
        for (const std::uint16_t port : {kControlPort, listener.local_endpoint().port()}) {
            tcp::socket peer = other.connect(io, {asio::ip::make_address(from), port},
                                             {asio::ip::make_address(to), kControlPort});
            EXPECT_EQ(unplugStatus(peer), kStatusPermissionDenied) << from << " port " << port;
        }
    }
    EXPECT_TRUE(receiverPresent());
    EXPECT_EQ(daemon->errorOutput().find("HALVO_UID=0"), std::string::npos);
}

#endif

} // namespace
} // namespace halvo::daemon
