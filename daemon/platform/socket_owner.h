// Which local user a TCP client is: the owner of the client's own
// established socket, found by its exact address pair.  Linux asks the
// kernel (sock_diag); elsewhere nothing is known, so such clients are
// unknown users, who may look but not change.
#pragma once

#include "util/expected.h"

#include <boost/asio/ip/tcp.hpp>
#include <optional>
#include <string>
#include <sys/types.h>

namespace halvo::daemon {

// The uid owning the established socket that connects `remote` to `local`
// (the daemon's side), in the daemon's own network namespace; nothing when
// `remote` is not a loopback address, when no such socket exists (the
// client has already closed, or is in another namespace) or when the system
// cannot tell.  Failures of the lookup itself are logged, at most once a
// minute.
std::optional<uid_t> localSocketOwner(const boost::asio::ip::tcp::endpoint& local,
                                      const boost::asio::ip::tcp::endpoint& remote);

// Whether clients' users can be found on this system, or why not: asked
// once at start, so that the log says why every change is refused.
util::Expected<void> socketOwnersAvailable();

} // namespace halvo::daemon
