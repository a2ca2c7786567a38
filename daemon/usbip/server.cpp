#include "daemon/usbip/server.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/peer_text.h"
#include "daemon/usbip/session.h"
#include "daemon/usbip/tls_session.h"

#include <algorithm>

namespace halvo::daemon::usbip {

namespace asio = boost::asio;

namespace {

// A flood of refusals costs at most this many lines a period, and a count.
constexpr LogThrottle::Settings kRefusalLog{5, std::chrono::seconds(10)};

// What a host's places are counted by: its address, or for a routed IPv6
// address its /64 network, any of whose addresses the host may take.
std::string hostKey(const asio::ip::address& address) {
    if (!address.is_v6() || address.is_loopback() || address.to_v6().is_link_local()) {
        return address.to_string();
    }
    asio::ip::address_v6::bytes_type bytes = address.to_v6().to_bytes();
    std::fill(bytes.begin() + 8, bytes.end(), 0);
    return asio::ip::address_v6(bytes).to_string() + "/64";
}

} // namespace

Server::Server(asio::io_context& io, ShareTable& shares, EventSink sink, ServerSettings settings)
    : shares_(shares), sink_(std::move(sink)), settings_(settings),
      listener_(io, [this](asio::ip::tcp::socket socket) { admit(std::move(socket)); }), poll_(io),
      refusals_(io, "USB/IP connections refused", kRefusalLog) {}

Server::~Server() {
    stop();
}

util::Expected<void> Server::listen(const asio::ip::tcp::endpoint& endpoint) {
    return started(listener_.listen(endpoint));
}

util::Expected<void> Server::adopt(int listeningSocket) {
    return started(listener_.adopt(listeningSocket));
}

util::Expected<void> Server::started(util::Expected<void> listening) {
    if (listening) {
        pollShares();
    }
    return listening;
}

asio::ip::tcp::endpoint Server::localEndpoint() const {
    return listener_.localEndpoint();
}

void Server::stop() {
    listener_.close();
    poll_.cancel();
    refusals_.flush();
    // finish() leaves the map, so walk a copy.
    auto sessions = sessions_;
    for (auto& [id, place] : sessions) {
        place.session->finish();
    }
}

void Server::publish(const std::vector<Event>& events) {
    for (const Event& event : events) {
        sink_(event);
    }
}

void Server::sessionEnded(std::uint64_t id) {
    auto found = sessions_.find(id);
    if (found == sessions_.end()) {
        return;
    }
    auto places = placesOfHost_.find(found->second.host);
    if (--places->second == 0) {
        placesOfHost_.erase(places);
    }
    sessions_.erase(found);
}

void Server::admit(asio::ip::tcp::socket socket) {
    boost::system::error_code error;
    const asio::ip::tcp::endpoint peer = socket.remote_endpoint(error);
    if (error) {
        return; // the host has gone already
    }
    const asio::ip::address address = plainAddress(peer.address());
    const RemoteHost remote{address.to_string(), peer.port()};
    const std::string host = hostKey(address);
    if (auto reason = refusal(host)) {
        logRefusal(endpointText(remote.addr, remote.port), *reason);
        return; // `socket` closes here
    }
    const std::uint64_t id = nextId_++;
    std::shared_ptr<Exchange> session;
    if (tls_) {
        session = std::make_shared<TlsSession>(*this, id, std::move(socket), remote, *tls_);
    } else {
        session = std::make_shared<Session>(*this, id, std::move(socket), remote);
    }
    sessions_.emplace(id, Place{session, host});
    ++placesOfHost_[host];
    session->start();
}

std::optional<std::string> Server::refusal(const std::string& host) const {
    auto places = placesOfHost_.find(host);
    if (places != placesOfHost_.end() && places->second >= settings_.maxPerHost) {
        return "too many connections of this host (" + std::to_string(settings_.maxPerHost) + ")";
    }
    if (places == placesOfHost_.end() && placesOfHost_.size() >= settings_.maxHosts) {
        return "too many hosts (" + std::to_string(settings_.maxHosts) + ")";
    }
    return std::nullopt;
}

void Server::logRefusal(const std::string& peer, const std::string& reason) {
    refusals_.log(LogLevel::warning, "USB/IP connection refused: " + reason,
                  {{log_field::kPeer, peer}});
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
