#include "daemon/platform/peer_identity.h"

namespace halvo::daemon {

namespace {

using boost::asio::ip::address;
using boost::asio::ip::tcp;

bool sameEndpoint(const tcp::endpoint& a, const tcp::endpoint& b) {
    return a.port() == b.port() && unmapped(a.address()) == unmapped(b.address());
}

// A uid that no user has: the kernel's "no mapping" values.
constexpr uid_t kNoUid = static_cast<uid_t>(-1);

} // namespace

address unmapped(const address& addr) {
    if (addr.is_v6() && addr.to_v6().is_v4_mapped()) {
        return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, addr.to_v6());
    }
    return addr;
}

bool mayBeLocalUser(const address& addr) {
    return unmapped(addr).is_loopback();
}

std::optional<uid_t> clientUid(const SocketEnds& asked, const SocketReport& report) {
    if (!mayBeLocalUser(asked.local.address()) ||
        report.state != static_cast<std::uint8_t>(TcpState::established) ||
        !sameEndpoint(report.ends.local, asked.local) ||
        !sameEndpoint(report.ends.remote, asked.remote) || report.uid == kNoUid) {
        return std::nullopt;
    }
    return report.uid;
}

} // namespace halvo::daemon
