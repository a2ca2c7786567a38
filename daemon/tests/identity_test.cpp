// Who halvod thinks a client is, tried as an attacker would: a local client
// that closes before the daemon takes its connection, and a host on another
// machine (a second network namespace behind a veth pair) that picks the
// port of a listener as its source port.  Neither may change anything.
#include "link/packet.h"
#include "tests/support/daemon_harness.h"
#include "tests/support/portable_fd.h"
#include "tests/support/private_network.h"
#include "tests/support/process_runner.h"

#include <gtest/gtest.h>
#include <signal.h>

#if defined(__linux__)
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <unistd.h>
#endif

namespace halvo::daemon {
namespace {

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

// A route-netlink request: a header, a fixed part, then attributes (nested
// ones closed by `close`).
class RouteRequest {
  public:
    RouteRequest(std::uint16_t type, std::uint16_t flags) {
        nlmsghdr header{};
        header.nlmsg_type = type;
        header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
        append(&header, sizeof header);
    }
    template <typename Fixed> void put(const Fixed& fixed) { append(&fixed, sizeof fixed); }
    std::size_t open(std::uint16_t type) {
        const std::size_t at = bytes_.size();
        attribute(type, nullptr, 0);
        return at;
    }
    void close(std::size_t at) {
        const auto length = static_cast<std::uint16_t>(bytes_.size() - at);
        std::memcpy(bytes_.data() + at, &length, sizeof length);
    }
    void attribute(std::uint16_t type, const void* data, std::size_t size) {
        rtattr head{static_cast<std::uint16_t>(RTA_LENGTH(size)), type};
        append(&head, sizeof head);
        append(data, size);
    }
    void text(std::uint16_t type, const std::string& value) {
        attribute(type, value.c_str(), value.size() + 1);
    }
    // Sends the request and waits for the kernel's acknowledgement.
    bool send() {
        const auto length = static_cast<std::uint32_t>(bytes_.size());
        std::memcpy(bytes_.data(), &length, sizeof length);
        const int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
        nlmsgerr answer{};
        alignas(nlmsghdr) char reply[1024];
        const bool sent =
            fd >= 0 && ::send(fd, bytes_.data(), bytes_.size(), 0) >= 0 &&
            ::recv(fd, reply, sizeof reply, 0) >= ssize_t(NLMSG_LENGTH(sizeof answer));
        if (sent) {
            std::memcpy(&answer, reply + NLMSG_LENGTH(0), sizeof answer);
        }
        ::close(fd);
        return sent && answer.error == 0;
    }

  private:
    void append(const void* data, std::size_t size) {
        const auto* from = static_cast<const char*>(data);
        bytes_.insert(bytes_.end(), from, from + size);
        bytes_.resize(NLMSG_ALIGN(bytes_.size()));
    }
    std::vector<char> bytes_;
};

bool linkUp(const char* name) {
    RouteRequest request(RTM_NEWLINK, 0);
    ifinfomsg link{};
    link.ifi_index = static_cast<int>(::if_nametoindex(name));
    link.ifi_flags = IFF_UP;
    link.ifi_change = IFF_UP;
    request.put(link);
    return request.send();
}

bool addAddress(const char* name, int family, const char* text, unsigned char prefix) {
    unsigned char bytes[16];
    ::inet_pton(family, text, bytes);
    RouteRequest request(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL);
    ifaddrmsg address{};
    address.ifa_family = static_cast<unsigned char>(family);
    address.ifa_prefixlen = prefix;
    address.ifa_flags = IFA_F_NODAD; // usable at once
    address.ifa_index = ::if_nametoindex(name);
    request.put(address);
    const std::size_t size = family == AF_INET ? 4 : 16;
    request.attribute(IFA_LOCAL, bytes, size);
    request.attribute(IFA_ADDRESS, bytes, size);
    return request.send();
}

// A link's two ends and their addresses, here and in the other namespace.
bool configure(const char* name, const char* v4, const char* v6) {
    return addAddress(name, AF_INET, v4, 24) && addAddress(name, AF_INET6, v6, 64) &&
           linkUp(name) && linkUp("lo");
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
        there_ = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        if (::setns(here_, CLONE_NEWNET) != 0 || there_ < 0) {
            return false;
        }
        RouteRequest veth(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
        veth.put(ifinfomsg{});
        veth.text(IFLA_IFNAME, "halvo-here");
        const std::size_t info = veth.open(IFLA_LINKINFO);
        veth.text(IFLA_INFO_KIND, "veth");
        const std::size_t data = veth.open(IFLA_INFO_DATA);
        const std::size_t peer = veth.open(VETH_INFO_PEER);
        veth.put(ifinfomsg{});
        veth.text(IFLA_IFNAME, "halvo-there");
        const std::uint32_t namespaceFd = static_cast<std::uint32_t>(there_);
        veth.attribute(IFLA_NET_NS_FD, &namespaceFd, sizeof namespaceFd);
        veth.close(peer);
        veth.close(data);
        veth.close(info);
        if (!veth.send() || !configure("halvo-here", "10.99.0.1", "fd99::1")) {
            return false;
        }
        const bool configured =
            ::setns(there_, CLONE_NEWNET) == 0 && configure("halvo-there", "10.99.0.2", "fd99::2");
        return ::setns(here_, CLONE_NEWNET) == 0 && configured;
    }
    ~OtherHost() {
        for (int fd : {here_, there_}) {
            if (fd >= 0) {
                ::close(fd);
            }
        }
    }

    // A connection from `from`:`port` on the other host to `to` here, or -1.
    int connect(const char* from, std::uint16_t port, const char* to) const {
        const int family =
            std::string_view(from).find(':') == std::string_view::npos ? AF_INET : AF_INET6;
        if (::setns(there_, CLONE_NEWNET) != 0) {
            return -1;
        }
        const int fd = testkit::openSocket(family, SOCK_STREAM);
        ::setns(here_, CLONE_NEWNET);
        sockaddr_storage source{}, target{};
        const socklen_t size = address(family, from, port, source);
        address(family, to, kControlPort, target);
        if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&source), size) != 0 ||
            ::connect(fd, reinterpret_cast<sockaddr*>(&target), size) != 0) {
            if (fd >= 0) {
                ::close(fd);
            }
            return -1;
        }
        return fd;
    }

  private:
    static socklen_t address(int family, const char* text, std::uint16_t port,
                             sockaddr_storage& into) {
        if (family == AF_INET) {
            auto& v4 = reinterpret_cast<sockaddr_in&>(into);
            v4.sin_family = AF_INET;
            v4.sin_port = htons(port);
            ::inet_pton(AF_INET, text, &v4.sin_addr);
            return sizeof v4;
        }
        auto& v6 = reinterpret_cast<sockaddr_in6&>(into);
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        ::inet_pton(AF_INET6, text, &v6.sin6_addr);
        return sizeof v6;
    }

    int here_ = -1;
    int there_ = -1;
};

// The status the daemon answers to an unplug sent on `fd`.
std::string unplugStatus(int fd) {
    const std::string request =
        link::encodePacket(link::code(link::CommandCode::disconnectDevice), kUnplugReceiver);
    std::array<unsigned char, link::kHeaderSize> header{};
    const auto giveUp = [deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5)] {
        return std::chrono::steady_clock::now() > deadline;
    };
    if (!testkit::sendAll(fd, request) ||
        !testkit::receiveExactly(fd, reinterpret_cast<char*>(header.data()), header.size(),
                                 giveUp)) {
        return "no answer";
    }
    std::string payload(link::decodeHeader(header.data()).size, '\0');
    if (payload.size() > 4096 ||
        !testkit::receiveExactly(fd, payload.data(), payload.size(), giveUp)) {
        return "no answer";
    }
    auto decoded = link::decodePayload(payload);
    const auto* reply = std::get_if<boost::json::object>(&decoded);
    const auto* status = reply ? reply->if_contains("status") : nullptr;
    return status && status->is_string() ? std::string(status->get_string()) : payload;
}

// The kernel, asked for a socket it does not have, may describe a listener
// on the peer's port instead: the daemon's own (source port 32999) or any
// other.  A peer on another host has no user here whatever its port.
TEST_F(Identity, AHostElsewhereIsNobodyWhateverItsSourcePort) {
    OtherHost other;
    if (!privateNetwork || !other.make()) {
        GTEST_SKIP() << "needs network namespaces and veth links";
    }
    const int listener = testkit::openSocket(AF_INET6, SOCK_STREAM);
    sockaddr_in6 anywhere{};
    anywhere.sin6_family = AF_INET6;
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&anywhere), sizeof anywhere), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    const std::uint16_t listenersPort = testkit::localPort(listener);

    auto daemon = DaemonProcess::start(
        {"--listen", "[::]:32999", "--allow-remote", "--devices", kDemo + "/devices.json"});
    ASSERT_TRUE(daemon);
    const std::pair<const char*, const char*> routes[] = {{"10.99.0.2", "10.99.0.1"},
                                                          {"fd99::2", "fd99::1"}};
    for (const auto& [from, to] : routes) {
        for (const std::uint16_t port : {kControlPort, listenersPort}) {
            const int fd = other.connect(from, port, to);
            ASSERT_GE(fd, 0) << from << " port " << port;
            EXPECT_EQ(unplugStatus(fd),
                      "permission denied: only root, the daemon's user and the admin group may "
                      "change this")
                << from << " port " << port;
            ::close(fd);
        }
    }
    ::close(listener);
    EXPECT_TRUE(receiverPresent());
    EXPECT_EQ(daemon->errorOutput().find("HALVO_UID=0"), std::string::npos);
}

#endif

} // namespace
} // namespace halvo::daemon
