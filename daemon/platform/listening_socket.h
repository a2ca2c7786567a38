// The listening sockets of halvod's front ends: bound here, or passed in by
// the service manager (socket activation).
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <optional>
#include <string>

namespace halvo::daemon {

// Opens, binds and listens on `endpoint`; the reason on failure, with the
// acceptor left closed.
std::optional<std::string> listenOn(boost::asio::ip::tcp::acceptor& acceptor,
                                    const boost::asio::ip::tcp::endpoint& endpoint);

// Makes `acceptor` serve `listeningSocket`, which is already listening; the
// reason on failure.
std::optional<std::string> adoptListening(boost::asio::ip::tcp::acceptor& acceptor,
                                          int listeningSocket);

} // namespace halvo::daemon
