// Which local user a TCP client is: the owner of the client's own socket,
// found by its exact address pair. Linux asks the kernel (sock_diag);
// elsewhere nothing is known, so such clients are treated as strangers.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <optional>
#include <sys/types.h>

namespace halvo::daemon {

// The uid owning the socket that connects `remote` to `local` (the daemon's
// side), or nothing when no local socket matches (a remote peer) or the
// system cannot tell.
std::optional<uid_t> localSocketOwner(const boost::asio::ip::tcp::endpoint& local,
                                      const boost::asio::ip::tcp::endpoint& remote);

} // namespace halvo::daemon
