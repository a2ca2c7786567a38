#include "daemon/usbip/server.h"

#include "daemon/platform/listening_socket.h"
#include "daemon/usbip/session.h"

namespace halvo::daemon::usbip {

namespace asio = boost::asio;

Server::Server(asio::io_context& io, ShareTable& shares, EventSink sink, ServerSettings settings)
    : shares_(shares), sink_(std::move(sink)), settings_(settings), acceptor_(io), poll_(io),
      acceptRetry_(io) {}

Server::~Server() {
    stop();
}

std::optional<std::string> Server::listen(const asio::ip::tcp::endpoint& endpoint) {
    if (auto problem = listenOn(acceptor_, endpoint)) {
        return problem;
    }
    start();
    return std::nullopt;
}

std::optional<std::string> Server::adopt(int listeningSocket) {
    if (auto problem = adoptListening(acceptor_, listeningSocket)) {
        return problem;
    }
    start();
    return std::nullopt;
}

void Server::start() {
    accept();
    pollShares();
}

asio::ip::tcp::endpoint Server::localEndpoint() const {
    boost::system::error_code error;
    return acceptor_.local_endpoint(error);
}

void Server::stop() {
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    poll_.cancel();
    acceptRetry_.cancel();
    // finish() leaves the map, so walk a copy.
    auto sessions = sessions_;
    for (auto& [id, session] : sessions) {
        session->finish();
    }
}

void Server::publish(const std::vector<Event>& events) {
    for (const Event& event : events) {
        sink_(event);
    }
}

void Server::sessionEnded(std::uint64_t id) {
    sessions_.erase(id);
}

void Server::accept() {
    acceptor_.async_accept(
        [this](const boost::system::error_code& error, asio::ip::tcp::socket socket) {
            if (error == asio::error::operation_aborted || !acceptor_.is_open()) {
                return;
            }
            if (error) {
                // Out of descriptors, say: try again shortly rather than spin.
                acceptRetry_.expires_after(std::chrono::milliseconds(100));
                acceptRetry_.async_wait([this](const boost::system::error_code& cancelled) {
                    if (!cancelled) {
                        accept();
                    }
                });
                return;
            }
            if (sessions_.size() < settings_.maxPeers) {
                const std::uint64_t id = nextId_++;
                auto session = std::make_shared<Session>(*this, id, std::move(socket));
                sessions_.emplace(id, session);
                session->start();
            }
            // A host turned away is closed with `socket` here.
            accept();
        });
}

void Server::pollShares() {
    poll_.expires_after(settings_.detachPoll);
    poll_.async_wait([this](const boost::system::error_code& error) {
        if (error) {
            return;
        }
        publish(shares_.endDetached());
        pollShares();
    });
}

} // namespace halvo::daemon::usbip
