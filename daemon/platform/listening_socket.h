// The listening sockets of halvod's front ends: bound here, or passed in by
// the service manager (socket activation), and the accept loop over them.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <optional>
#include <string>

namespace halvo::daemon {

// Hands each accepted connection to its handler, on the io_context's thread.
// A failed accept (out of descriptors, say) is logged and tried again after a
// pause instead of in a busy loop.
class ListeningSocket {
  public:
    using ConnectionHandler = std::function<void(boost::asio::ip::tcp::socket)>;

    ListeningSocket(boost::asio::io_context& io, ConnectionHandler onConnection);

    // Opens, binds, listens and starts accepting; the reason on failure, with
    // the socket left closed.
    std::optional<std::string> listen(const boost::asio::ip::tcp::endpoint& endpoint);
    // Starts accepting on `listeningSocket`, which already listens and is
    // owned from now on; the reason on failure.
    std::optional<std::string> adopt(int listeningSocket);
    boost::asio::ip::tcp::endpoint localEndpoint() const;

    // Stops accepting; the handler is not called again.
    void close();

  private:
    void accept();

    ConnectionHandler onConnection_;
    boost::asio::ip::tcp::acceptor acceptor_;
    boost::asio::steady_timer retry_;
};

} // namespace halvo::daemon
