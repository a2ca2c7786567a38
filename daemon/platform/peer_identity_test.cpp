#include "daemon/platform/peer_identity.h"

#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

using boost::asio::ip::make_address;
using boost::asio::ip::tcp;

tcp::endpoint at(const char* addr, unsigned short port) {
    return {make_address(addr), port};
}

// A client on 127.0.0.1:40000 of the daemon on 127.0.0.1:32999, as the
// client's socket sees it.
const SocketEnds kClient{at("127.0.0.1", 40000), at("127.0.0.1", 32999)};
constexpr uid_t kUser = 1000;
constexpr auto kEstablished = static_cast<std::uint8_t>(TcpState::established);

// Every state the kernel can report (SYN_SENT to BOUND_INACTIVE) and every
// number it does not use: only the client's own live connection names its
// user.  Not a listener, a half-open handshake, nor the TIME_WAIT and
// FIN_WAIT2 remnants of a client that closed (the kernel reports uid 0).
TEST(PeerIdentityTest, OnlyAnEstablishedSocketNamesItsOwner) {
    for (unsigned state = 0; state <= 255; ++state) {
        const SocketReport report{static_cast<std::uint8_t>(state), kClient, kUser};
        EXPECT_EQ(clientUid(kClient, report).has_value(), state == kEstablished) << state;
    }
}

struct EndsCase {
    const char* what;
    SocketEnds asked;
    SocketEnds reported;
    uid_t uid;
    std::optional<uid_t> expected;
};

// An established socket counts only on exactly the ends asked for, and only
// for a peer on a loopback address.
TEST(PeerIdentityTest, OnlyTheExactPairOfALoopbackPeerCounts) {
    const tcp::endpoint server = kClient.remote;
    const SocketEnds v6{at("::1", 40000), at("::1", 32999)};
    const SocketEnds mapped{at("::ffff:127.0.0.1", 40000), at("::ffff:127.0.0.1", 32999)};
    const SocketEnds remote{at("10.0.0.5", 32999), at("10.0.0.1", 32999)};
    const SocketEnds remote6{at("fd00::5", 22), at("fd00::1", 32999)};
    const EndsCase cases[] = {
        {"the client itself", kClient, kClient, kUser, kUser},
        {"root's own client", kClient, kClient, 0, 0u},
        {"no uid", kClient, kClient, static_cast<uid_t>(-1), std::nullopt},
        {"a listener", kClient, {at("0.0.0.0", 40000), at("0.0.0.0", 0)}, kUser, std::nullopt},
        {"another client port", kClient, {at("127.0.0.1", 40001), server}, kUser, std::nullopt},
        {"another daemon port", kClient, {kClient.local, at("127.0.0.1", 3240)}, kUser, {}},
        {"another address", kClient, {at("127.0.0.2", 40000), server}, kUser, std::nullopt},
        {"the ends swapped", kClient, {server, kClient.local}, kUser, std::nullopt},
        {"IPv6 for IPv4", kClient, v6, kUser, std::nullopt},
        {"IPv4 client of an IPv6 listener", mapped, kClient, kUser, kUser},
        {"an IPv6 client", v6, v6, kUser, kUser},
        {"another host, exact as it may be", remote, remote, kUser, std::nullopt},
        {"another host over IPv6", remote6, remote6, 0, std::nullopt},
    };
    for (const EndsCase& row : cases) {
        EXPECT_EQ(clientUid(row.asked, SocketReport{kEstablished, row.reported, row.uid}),
                  row.expected)
            << row.what;
    }
}

} // namespace
} // namespace halvo::daemon
