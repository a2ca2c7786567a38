// Systems without a way to find a TCP socket's owner: every client is an
// unknown user, who may look but not change (access fails closed).
#include "daemon/platform/socket_owner.h"

namespace halvo::daemon {

std::optional<uid_t> localSocketOwner(const boost::asio::ip::tcp::endpoint&,
                                      const boost::asio::ip::tcp::endpoint&) {
    return std::nullopt;
}

util::Expected<void> socketOwnersAvailable() {
    return util::Failure{"this system offers no socket diagnostics"};
}

} // namespace halvo::daemon
