// Systems without a way to find a TCP socket's owner: every client is a
// stranger, who may look but not change (access fails closed).
#include "daemon/platform/socket_owner.h"

namespace halvo::daemon {

std::optional<uid_t> localSocketOwner(const boost::asio::ip::tcp::endpoint&,
                                      const boost::asio::ip::tcp::endpoint&) {
    return std::nullopt;
}

} // namespace halvo::daemon
