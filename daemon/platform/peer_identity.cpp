#include "daemon/platform/peer_identity.h"

#include "daemon/core/peer_text.h"

namespace halvo::daemon {

namespace {

using boost::asio::ip::address;
using boost::asio::ip::tcp;

bool sameEndpoint(const tcp::endpoint& a, const tcp::endpoint& b) {
    return a.port() == b.port() && plainAddress(a.address()) == plainAddress(b.address());
}

// A uid that no user has: the kernel's "no mapping" values.
constexpr uid_t kNoUid = static_cast<uid_t>(-1);

} // namespace

bool mayBeLocalUser(const address& addr) {
    return plainAddress(addr).is_loopback();
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
