#include "daemon/usbip/server.h"

#include "daemon/usbip/session.h"
#include "daemon/usbip/tls_session.h"

namespace halvo::daemon::usbip {

namespace asio = boost::asio;

Server::Server(asio::io_context& io, ShareTable& shares, EventSink sink, ServerSettings settings)
    : shares_(shares), sink_(std::move(sink)), settings_(settings),
      listener_(io, [this](asio::ip::tcp::socket socket) { admit(std::move(socket)); }), poll_(io) {
}

Server::~Server() {
    stop();
}

std::optional<std::string> Server::listen(const asio::ip::tcp::endpoint& endpoint) {
    return started(listener_.listen(endpoint));
}

std::optional<std::string> Server::adopt(int listeningSocket) {
    return started(listener_.adopt(listeningSocket));
}

std::optional<std::string> Server::started(std::optional<std::string> problem) {
    if (!problem) {
        pollShares();
    }
    return problem;
}

asio::ip::tcp::endpoint Server::localEndpoint() const {
    return listener_.localEndpoint();
}

void Server::stop() {
    listener_.close();
    poll_.cancel();
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

void Server::admit(asio::ip::tcp::socket socket) {
    if (sessions_.size() >= settings_.maxPeers) {
        return; // turned away: `socket` closes here
    }
    const std::uint64_t id = nextId_++;
    std::shared_ptr<Exchange> session;
    if (tls_) {
        boost::system::error_code error;
        const asio::ip::tcp::endpoint peer = socket.remote_endpoint(error);
        asio::ip::address address = peer.address();
        if (address.is_v6() && address.to_v6().is_v4_mapped()) {
            address = asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
        }
        session = std::make_shared<TlsSession>(*this, id, std::move(socket),
                                               RemoteHost{address.to_string(), peer.port()}, *tls_);
    } else {
        session = std::make_shared<Session>(*this, id, std::move(socket));
    }
    sessions_.emplace(id, session);
    session->start();
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
