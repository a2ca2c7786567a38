#include "daemon/platform/listening_socket.h"

#include <boost/asio/socket_base.hpp>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace halvo::daemon {

namespace asio = boost::asio;
using asio::ip::tcp;

std::optional<std::string> listenOn(tcp::acceptor& acceptor, const tcp::endpoint& endpoint) {
    boost::system::error_code error;
    acceptor.open(endpoint.protocol(), error);
    if (!error) {
        acceptor.set_option(asio::socket_base::reuse_address(true), error);
    }
    if (!error) {
        acceptor.bind(endpoint, error);
    }
    if (!error) {
        acceptor.listen(asio::socket_base::max_listen_connections, error);
    }
    if (error) {
        boost::system::error_code ignored;
        acceptor.close(ignored);
        return error.message();
    }
    return std::nullopt;
}

std::optional<std::string> adoptListening(tcp::acceptor& acceptor, int listeningSocket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(listeningSocket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return std::string(std::strerror(errno));
    }
    boost::system::error_code error;
    acceptor.assign(address.ss_family == AF_INET6 ? tcp::v6() : tcp::v4(), listeningSocket, error);
    if (error) {
        return error.message();
    }
    return std::nullopt;
}

} // namespace halvo::daemon
