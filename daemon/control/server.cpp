#include "daemon/control/server.h"

#include "link/packet.h"

#include <boost/asio/socket_base.hpp>
#include <cstdio>

namespace halvo::daemon {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

// Pause after a failed accept (out of descriptors, say) before trying again.
constexpr std::chrono::milliseconds kAcceptRetryDelay{100};

} // namespace

Server::Server(asio::io_context& io, RequestHandler& handler)
    : handler_(handler), acceptor_(io), acceptRetry_(io) {}

std::optional<std::string> Server::listen(const tcp::endpoint& endpoint) {
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
        boost::system::error_code ignored;
        acceptor_.close(ignored);
        return error.message();
    }
    accept();
    return std::nullopt;
}

tcp::endpoint Server::localEndpoint() const {
    boost::system::error_code ignored;
    return acceptor_.local_endpoint(ignored);
}

void Server::accept() {
    acceptor_.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
        if (error == asio::error::operation_aborted || !acceptor_.is_open()) {
            return;
        }
        if (error) {
            std::fprintf(stderr, "halvod: accept: %s\n", error.message().c_str());
            acceptRetry_.expires_after(kAcceptRetryDelay);
            acceptRetry_.async_wait([this](const boost::system::error_code& waitError) {
                if (!waitError) {
                    accept();
                }
            });
            return;
        }
        if (sessions_.size() >= kMaxClients) {
            boost::system::error_code ignored;
            socket.close(ignored);
        } else {
            std::uint64_t id = nextClientId_++;
            auto session = std::make_shared<Session>(std::move(socket), id, *this);
            sessions_.emplace(id, session);
            session->start();
        }
        accept();
    });
}

void Server::broadcast(const Event& event) {
    const std::string packet = link::encodePacket(link::code(event.code), event.payload);
    // A session may end while it is sent to, so walk a copy.
    auto sessions = sessions_;
    for (auto& [id, session] : sessions) {
        session->send(packet);
    }
}

void Server::stop() {
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    acceptRetry_.cancel();
    auto sessions = sessions_;
    for (auto& [id, session] : sessions) {
        session->close();
    }
}

void Server::packetReceived(Session& session, std::uint32_t command, boost::json::object payload) {
    Outcome outcome = handler_.handle(session.id(), command, payload);
    session.send(link::encodePacket(command, outcome.reply));
    for (const Event& event : outcome.events) {
        broadcast(event);
    }
}

void Server::sessionEnded(Session& session) {
    handler_.clientLeft(session.id());
    sessions_.erase(session.id());
}

} // namespace halvo::daemon
