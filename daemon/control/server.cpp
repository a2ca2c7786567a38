#include "daemon/control/server.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/peer_text.h"
#include "daemon/platform/memory_release.h"
#include "daemon/platform/socket_owner.h"
#include "link/packet.h"

#include <algorithm>
#include <chrono>
#include <new>

namespace halvo::daemon {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {} // namespace

Server::Server(asio::io_context& io, RequestHandler& handler, AccessPolicy access,
               ClientLimits limits)
    : handler_(handler), access_(access), limits_(limits), budget_(limits.memoryBudget),
      worker_(io), turnedAway_(io, "clients refused or dropped to make room"),
      listener_(
          io, [this](tcp::socket socket) { admit(std::move(socket), false); },
          [this](tcp::socket socket) { admit(std::move(socket), true); }) {}

util::Expected<void> Server::listen(const tcp::endpoint& endpoint) {
    return listener_.listen(endpoint);
}

util::Expected<void> Server::adopt(int listeningSocket) {
    return listener_.adopt(listeningSocket);
}

tcp::endpoint Server::localEndpoint() const {
    return listener_.localEndpoint();
}

void Server::admit(tcp::socket socket, bool scarce) {
    boost::system::error_code ignored;
    const tcp::endpoint peer = socket.remote_endpoint(ignored);
    const std::optional<uid_t> uid = localSocketOwner(socket.local_endpoint(ignored), peer);
    const bool administrator = access_.mayChange(uid);
    if (auto refusal = refusalFor(uid, administrator, scarce)) {
        // Closed unanswered: the client reports a broken link, not an empty success.
        turnedAway_.log(LogLevel::warning, "client refused: " + *refusal,
                        {{log_field::kUid, uidText(uid)}, {log_field::kPeer, endpointText(peer)}});
        return;
    }
    const std::uint64_t id = nextClientId_++;
    auto session = std::make_shared<Session>(std::move(socket), id, *this, limits_, budget_);
    session->setUid(uid);
    session->setMayChange(administrator);
    clients_.emplace(id, Client{session});
    ++clientsOfUser_[uid];
    session->start();
}

std::optional<std::string> Server::refusalFor(std::optional<uid_t> uid, bool administrator,
                                              bool scarce) {
    auto ordinary = [](const Client& client) { return !client.session->mayChange(); };
    if (scarce) {
        // The connection already holds the last descriptor: an administrator
        // keeps it, at another user's expense.
        if (!administrator) {
            return "out of descriptors";
        }
        makeRoom(ordinary, true);
        return std::nullopt;
    }
    auto sameUser = [uid](const Client& client) { return client.session->uid() == uid; };
    const auto ofUser = clientsOfUser_.find(uid);
    if (ofUser != clientsOfUser_.end() && ofUser->second >= limits_.maxClientsPerUser &&
        !makeRoom(sameUser, false)) {
        return "busy: too many clients of this user (" + std::to_string(limits_.maxClientsPerUser) +
               ")";
    }
    const std::size_t reserve = std::min(limits_.reservedClients, limits_.maxClients / 2);
    const std::size_t places = administrator ? limits_.maxClients : limits_.maxClients - reserve;
    if (clients_.size() >= places && !makeRoom(ordinary, administrator)) {
        return "busy: too many clients (" + std::to_string(limits_.maxClients) + ")";
    }
    return std::nullopt;
}

bool Server::mayMakeRoom(const Client& client, std::chrono::steady_clock::time_point now) const {
    return (!client.asked && now - client.connected >= limits_.firstRequestAfter) ||
           now - client.session->lastHeard() >= limits_.idleAfter;
}

template <typename Filter> bool Server::makeRoom(Filter candidates, bool evenIfBusy) {
    const auto now = std::chrono::steady_clock::now();
    const Client* chosen = nullptr;
    for (const auto& [id, client] : clients_) {
        if (candidates(client) && (evenIfBusy || mayMakeRoom(client, now)) &&
            (!chosen || client.session->lastHeard() < chosen->session->lastHeard())) {
            chosen = &client;
        }
    }
    if (!chosen) {
        return false;
    }
    const std::shared_ptr<Session> dropped = chosen->session;
    const char* why = !mayMakeRoom(*chosen, now)
                          ? "client dropped to make room for an administrator"
                      : chosen->asked ? "client dropped to make room: idle"
                                      : "client dropped to make room: silent since it connected";
    turnedAway_.log(LogLevel::warning, why,
                    {{log_field::kClient, std::to_string(dropped->id())},
                     {log_field::kUid, uidText(dropped->uid())},
                     {log_field::kPeer, endpointText(dropped->peer())}});
    dropped->close();
    return true;
}

void Server::broadcast(const Event& event) {
    const std::string packet = link::encodePacket(link::code(event.code), event.payload);
    // A session may end while it is sent to, so walk a copy.
    auto clients = clients_;
    for (auto& [id, client] : clients) {
        client.session->send(packet);
    }
    enforceBudget();
}

void Server::enforceBudget() {
    // The clients that read least pay for the budget, not the active ones.
    while (budget_.exceeded()) {
        auto hog =
            std::max_element(clients_.begin(), clients_.end(), [](const auto& a, const auto& b) {
                return a.second.session->unsentBytes() < b.second.session->unsentBytes();
            });
        if (hog == clients_.end() || hog->second.session->unsentBytes() == 0) {
            return;
        }
        std::shared_ptr<Session> dropped = hog->second.session;
        dropped->close("too much unread output");
    }
}

void Server::stop() {
    listener_.close();
    auto clients = clients_;
    for (auto& [id, client] : clients) {
        client.session->close();
    }
}

void Server::packetReceived(Session& session, std::uint32_t command, boost::json::object payload) {
    if (auto client = clients_.find(session.id()); client != clients_.end()) {
        client->second.asked = true;
    }
    const Caller caller{session.id(), session.uid(), session.mayChange()};
    if (auto work = handler_.offLoop(caller, command, payload)) {
        worker_.run(std::move(*work), [this, session = session.shared_from_this(),
                                       command](const RequestHandler::Finish& finish) {
            answer(*session, command, finish);
        });
        return;
    }
    answer(session, command, [&] { return handler_.handle(caller, command, payload); });
}

void Server::answer(Session& session, std::uint32_t command, const RequestHandler::Finish& finish) {
    Outcome outcome;
    std::string reply;
    try {
        outcome = finish();
        reply = outcome.serialized.empty()
                    ? link::encodePacket(command, outcome.reply)
                    : link::encodePacket(command, std::string_view(outcome.serialized));
    } catch (const std::bad_alloc&) {
        // Out of memory for this request (an address-space limit, say): the
        // one client goes, the daemon stays.
        session.close("out of memory for its request");
        return;
    }
    if (reply.size() - link::kHeaderSize > link::kMaxPayloadSize) {
        // Loads are refused before a rule list could grow this large.
        logActivity(LogLevel::error, "reply too large for a packet",
                    {{log_field::kRequest, std::to_string(command)}});
        boost::json::object refusal;
        refusal["status"] = "internal error: the reply would not fit in one packet";
        reply = link::encodePacket(command, refusal);
    }
    session.send(std::move(reply), true);
    enforceBudget();
    for (const Event& event : outcome.events) {
        broadcast(event);
    }
    if (handler_.freedMemory()) {
        worker_.post(returnFreeMemory);
    }
}

void Server::sessionEnded(Session& session) {
    handler_.clientLeft(session.id());
    if (clients_.erase(session.id()) != 0 && --clientsOfUser_[session.uid()] == 0) {
        clientsOfUser_.erase(session.uid());
    }
    if (handler_.freedMemory()) {
        worker_.post(returnFreeMemory);
    }
}

} // namespace halvo::daemon
