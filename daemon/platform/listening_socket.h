// The listening sockets of halvod's front ends: bound here, or passed in by
// the service manager (socket activation), and the accept loop over them.
#pragma once

#include "daemon/core/log_throttle.h"
#include "util/expected.h"

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <optional>
#include <string>

namespace halvo::daemon {

// Hands each accepted connection to its handler, on the io_context's thread.
//
// Out of descriptors, the kernel keeps the connections queued and accept
// fails at once, again and again. So the socket keeps a few spare
// descriptors: when accept fails so, it lets them go, accepts one
// connection, hands it to `onScarce` (which may make room for it, and has
// a descriptor left to find out who it is) or closes it, and takes the
// spares back. When no connection was waiting after all, without spares,
// and on other failures, it pauses before it tries again; failures are
// logged at a bounded rate.
class ListeningSocket {
  public:
    using ConnectionHandler = std::function<void(boost::asio::ip::tcp::socket)>;

    ListeningSocket(boost::asio::io_context& io, ConnectionHandler onConnection,
                    ConnectionHandler onScarce = {});
    ~ListeningSocket();

    // Opens, binds, listens and starts accepting; the reason on failure, with
    // the socket left closed.
    util::Expected<void> listen(const boost::asio::ip::tcp::endpoint& endpoint);
    // Starts accepting on `listeningSocket`, which already listens and is
    // owned from now on; the reason on failure.
    util::Expected<void> adopt(int listeningSocket);
    boost::asio::ip::tcp::endpoint localEndpoint() const;

    // Stops accepting; the handlers are not called again.
    void close();

  private:
    void start();
    void accept();
    void acceptOnSpares();
    // Logs `why` unless empty.
    void pauseAccepting(const std::string& why);
    // Opens the spares that are missing; whether all are held.
    bool holdSpares();
    void releaseSpares();

    ConnectionHandler onConnection_;
    ConnectionHandler onScarce_;
    boost::asio::ip::tcp::acceptor acceptor_;
    boost::asio::steady_timer retry_;
    LogThrottle failures_;
    // The accepted connection, the look-up of its owner and that of the
    // owner's groups each take one.
    std::array<int, 3> spares_;
};

} // namespace halvo::daemon
