#include "daemon/platform/listening_socket.h"

#include <algorithm>
#include <boost/asio/socket_base.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::daemon {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

constexpr std::chrono::milliseconds kAcceptRetryDelay{100};

bool outOfDescriptors(const boost::system::error_code& error) {
    return error == asio::error::no_descriptors ||
           error == boost::system::error_code(ENFILE, boost::system::system_category());
}

} // namespace

ListeningSocket::ListeningSocket(asio::io_context& io, ConnectionHandler onConnection,
                                 ConnectionHandler onScarce)
    : onConnection_(std::move(onConnection)), onScarce_(std::move(onScarce)), acceptor_(io),
      retry_(io), failures_(io, "accept failures"), spares_{-1, -1, -1} {}

ListeningSocket::~ListeningSocket() {
    releaseSpares();
}

util::Expected<void> ListeningSocket::listen(const tcp::endpoint& endpoint) {
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
        return util::Failure{error.message()};
    }
    start();
    return {};
}

util::Expected<void> ListeningSocket::adopt(int listeningSocket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(listeningSocket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return util::Failure{std::strerror(errno)};
    }
    boost::system::error_code error;
    acceptor_.assign(address.ss_family == AF_INET6 ? tcp::v6() : tcp::v4(), listeningSocket, error);
    if (error) {
        return util::Failure{error.message()};
    }
    start();
    return {};
}

tcp::endpoint ListeningSocket::localEndpoint() const {
    boost::system::error_code ignored;
    return acceptor_.local_endpoint(ignored);
}

void ListeningSocket::close() {
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    retry_.cancel();
    releaseSpares();
}

void ListeningSocket::start() {
    // The accept on spares must not block when the queued client has gone.
    boost::system::error_code ignored;
    acceptor_.non_blocking(true, ignored);
    holdSpares();
    accept();
}

void ListeningSocket::accept() {
    acceptor_.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
        if (error == asio::error::operation_aborted || !acceptor_.is_open()) {
            return;
        }
        if (outOfDescriptors(error)) {
            acceptOnSpares();
            return;
        }
        if (error == asio::error::connection_aborted) {
            accept();
            return;
        }
        if (error) {
            pauseAccepting("accept failed: " + error.message());
            return;
        }
        onConnection_(std::move(socket));
        holdSpares();
        accept();
    });
}

void ListeningSocket::acceptOnSpares() {
    if (std::none_of(spares_.begin(), spares_.end(), [](int spare) { return spare >= 0; })) {
        pauseAccepting("accept failed: out of descriptors, and no spare left");
        return;
    }
    releaseSpares();
    boost::system::error_code error;
    tcp::socket socket(acceptor_.get_executor());
    acceptor_.accept(socket, error);
    const bool taken = !error;
    if (taken) {
        failures_.log(LogLevel::warning, "out of descriptors: a connection is taken on a spare");
        if (onScarce_) {
            onScarce_(std::move(socket));
        }
        // Otherwise the socket closes here: the client learns that it was turned away.
    }
    if (!holdSpares()) {
        pauseAccepting("out of descriptors: accepting again in " +
                       std::to_string(kAcceptRetryDelay.count()) + " ms");
    } else if (!taken) {
        // Without a free descriptor accept fails at once even when nobody
        // waits: look again later instead of at once.
        pauseAccepting({});
    } else {
        accept();
    }
}

void ListeningSocket::pauseAccepting(const std::string& why) {
    if (!why.empty()) {
        failures_.log(LogLevel::error, why);
    }
    retry_.expires_after(kAcceptRetryDelay);
    retry_.async_wait([this](const boost::system::error_code& error) {
        if (!error && acceptor_.is_open()) {
            holdSpares();
            accept();
        }
    });
}

bool ListeningSocket::holdSpares() {
    for (int& spare : spares_) {
        if (spare < 0) {
            spare = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        }
    }
    return std::all_of(spares_.begin(), spares_.end(), [](int spare) { return spare >= 0; });
}

void ListeningSocket::releaseSpares() {
    for (int& spare : spares_) {
        if (spare >= 0) {
            ::close(spare);
            spare = -1;
        }
    }
}

} // namespace halvo::daemon
