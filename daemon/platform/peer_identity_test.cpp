#include "daemon/platform/peer_identity.h"

#include <gtest/gtest.h>
#include <string>

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

struct StateCase {
    std::uint8_t state;
    bool owned; // whether the uid counts
};

// Every state the kernel reports, and numbers it does not use: only the
// client's own live connection names its user.  A listener, a half-open
// handshake and the remnants of a closed client (TIME_WAIT and FIN_WAIT2
// report uid 0) do not.
TEST(PeerIdentityTest, OnlyAnEstablishedSocketNamesItsOwner) {
    const StateCase states[] = {
        {0, false},
        {static_cast<std::uint8_t>(TcpState::established), true},
        {static_cast<std::uint8_t>(TcpState::synSent), false},
        {static_cast<std::uint8_t>(TcpState::synReceived), false},
        {static_cast<std::uint8_t>(TcpState::finWait1), false},
        {static_cast<std::uint8_t>(TcpState::finWait2), false},
        {static_cast<std::uint8_t>(TcpState::timeWait), false},
        {static_cast<std::uint8_t>(TcpState::close), false},
        {static_cast<std::uint8_t>(TcpState::closeWait), false},
        {static_cast<std::uint8_t>(TcpState::lastAck), false},
        {static_cast<std::uint8_t>(TcpState::listen), false},
        {static_cast<std::uint8_t>(TcpState::closing), false},
        {static_cast<std::uint8_t>(TcpState::newSynReceived), false},
        {static_cast<std::uint8_t>(TcpState::boundInactive), false},
        {14, false},
        {255, false},
    };
    for (const StateCase& row : states) {
        const std::optional<uid_t> uid =
            clientUid(kClient, SocketReport{row.state, kClient, kUser});
        EXPECT_EQ(uid, row.owned ? std::optional<uid_t>(kUser) : std::nullopt)
            << "state " << int(row.state);
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
    const EndsCase cases[] = {
        {"the client itself", kClient, kClient, kUser, kUser},
        {"root's own client", kClient, kClient, 0, 0u},
        {"no uid", kClient, kClient, static_cast<uid_t>(-1), std::nullopt},
        {"a listener on the client's port",
         kClient,
         {at("0.0.0.0", 40000), at("0.0.0.0", 0)},
         kUser,
         std::nullopt},
        {"another port of the client",
         kClient,
         {at("127.0.0.1", 40001), at("127.0.0.1", 32999)},
         kUser,
         std::nullopt},
        {"another port of the daemon",
         kClient,
         {at("127.0.0.1", 40000), at("127.0.0.1", 3240)},
         kUser,
         std::nullopt},
        {"another loopback address",
         kClient,
         {at("127.0.0.2", 40000), at("127.0.0.1", 32999)},
         kUser,
         std::nullopt},
        {"the ends swapped", kClient, {kClient.remote, kClient.local}, kUser, std::nullopt},
        {"an IPv6 socket for an IPv4 client",
         kClient,
         {at("::1", 40000), at("::1", 32999)},
         kUser,
         std::nullopt},
        {"an IPv4 client of an IPv6 listener",
         {at("::ffff:127.0.0.1", 40000), at("::ffff:127.0.0.1", 32999)},
         kClient,
         kUser,
         kUser},
        {"an IPv6 client",
         {at("::1", 40000), at("::1", 32999)},
         {at("::1", 40000), at("::1", 32999)},
         kUser,
         kUser},
        {"a peer on another host, exact as it may be",
         {at("10.0.0.5", 32999), at("10.0.0.1", 32999)},
         {at("10.0.0.5", 32999), at("10.0.0.1", 32999)},
         kUser,
         std::nullopt},
        {"a peer on another host over IPv6",
         {at("fd00::5", 22), at("fd00::1", 32999)},
         {at("fd00::5", 22), at("fd00::1", 32999)},
         0,
         std::nullopt},
    };
    for (const EndsCase& row : cases) {
        const SocketReport report{static_cast<std::uint8_t>(TcpState::established), row.reported,
                                  row.uid};
        EXPECT_EQ(clientUid(row.asked, report), row.expected) << row.what;
    }
}

} // namespace
} // namespace halvo::daemon
