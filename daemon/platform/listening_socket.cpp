#include "daemon/platform/listening_socket.h"

#include "daemon/core/activity_log.h"

#include <boost/asio/socket_base.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/socket.h>

namespace halvo::daemon {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

constexpr std::chrono::milliseconds kAcceptRetryDelay{100};

} // namespace

ListeningSocket::ListeningSocket(asio::io_context& io, ConnectionHandler onConnection)
    : onConnection_(std::move(onConnection)), acceptor_(io), retry_(io) {}

std::optional<std::string> ListeningSocket::listen(const tcp::endpoint& endpoint) {
    boost::system::error_code error;
    acceptor_.open(endpoint.protocol(), error);
    if (!error) {
        acceptor_.set_option(asio::socket_base::reuse_address(true), error);
    }
    if (!error) {
        acceptor_.bind(endpoint, error);
    }
    if (!error) {
        acceptor_.listen(asio::socket_base::max_listen_connections, error);
    }
    if (error) {
        close();
        return error.message();
    }
    accept();
    return std::nullopt;
}

std::optional<std::string> ListeningSocket::adopt(int listeningSocket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(listeningSocket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return std::string(std::strerror(errno));
    }
    boost::system::error_code error;
    acceptor_.assign(address.ss_family == AF_INET6 ? tcp::v6() : tcp::v4(), listeningSocket, error);
    if (error) {
        return error.message();
    }
    accept();
    return std::nullopt;
}

tcp::endpoint ListeningSocket::localEndpoint() const {
    boost::system::error_code ignored;
    return acceptor_.local_endpoint(ignored);
}

void ListeningSocket::close() {
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    retry_.cancel();
}

void ListeningSocket::accept() {
    acceptor_.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
        if (error == asio::error::operation_aborted || !acceptor_.is_open()) {
            return;
        }
        if (error) {
            logActivity(LogLevel::error, "accept failed: " + error.message());
            retry_.expires_after(kAcceptRetryDelay);
            retry_.async_wait([this](const boost::system::error_code& waitError) {
                if (!waitError) {
                    accept();
                }
            });
            return;
        }
        onConnection_(std::move(socket));
        accept();
    });
}

} // namespace halvo::daemon
