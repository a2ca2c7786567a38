#include "daemon/control/server.h"

#include "daemon/core/activity_log.h"
#include "daemon/platform/memory_release.h"
#include "daemon/platform/socket_owner.h"
#include "link/packet.h"

#include <algorithm>
#include <chrono>
#include <new>

namespace halvo::daemon {

namespace asio = boost::asio;
using asio::ip::tcp;

Server::Server(asio::io_context& io, RequestHandler& handler, AccessPolicy access,
               ClientLimits limits)
    : handler_(handler), access_(access), limits_(limits), budget_(limits.memoryBudget),
      worker_(io), listener_(io, [this](tcp::socket socket) { admit(std::move(socket)); }) {}

std::optional<std::string> Server::listen(const tcp::endpoint& endpoint) {
    return listener_.listen(endpoint);
}

std::optional<std::string> Server::adopt(int listeningSocket) {
    return listener_.adopt(listeningSocket);
}

tcp::endpoint Server::localEndpoint() const {
    return listener_.localEndpoint();
}

void Server::admit(tcp::socket socket) {
    boost::system::error_code ignored;
    const std::optional<uid_t> uid =
        localSocketOwner(socket.local_endpoint(ignored), socket.remote_endpoint(ignored));
    std::optional<std::string> refusal = refusalFor(uid);
    const tcp::endpoint peer = socket.remote_endpoint(ignored);
    std::uint64_t id = nextClientId_++;
    auto session = std::make_shared<Session>(std::move(socket), id, *this, limits_, budget_);
    session->setUid(uid);
    session->setMayChange(access_.mayChange(uid));
    sessions_.emplace(id, session);
    if (refusal) {
        logActivity(
            LogLevel::warning, "client refused: " + *refusal,
            {{"HALVO_UID", uid ? std::to_string(*uid) : std::string("none")},
             {"HALVO_PEER", peer.address().to_string() + ":" + std::to_string(peer.port())}});
        session->refuse(std::move(*refusal));
    } else {
        session->start();
    }
}

std::optional<std::string> Server::refusalFor(std::optional<uid_t> uid) {
    std::optional<std::string> refusal;
    auto among = [](const auto&) { return true; };
    auto sameUser = [uid](const auto& entry) { return entry.second->uid() == uid; };
    if (static_cast<std::size_t>(std::count_if(sessions_.begin(), sessions_.end(), sameUser)) >=
        limits_.maxClientsPerUser) {
        refusal = "busy: too many clients of this user (" +
                  std::to_string(limits_.maxClientsPerUser) + ")";
        return makeRoom(sameUser) ? std::nullopt : refusal;
    }
    if (sessions_.size() >= limits_.maxClients) {
        refusal = "busy: too many clients (" + std::to_string(limits_.maxClients) + ")";
        return makeRoom(among) ? std::nullopt : refusal;
    }
    return std::nullopt;
}

template <typename Filter> bool Server::makeRoom(Filter candidates) {
    // The client heard from least recently goes, if it has been idle long enough.
    std::shared_ptr<Session> idlest;
    for (const auto& entry : sessions_) {
        if (candidates(entry) && (!idlest || entry.second->lastHeard() < idlest->lastHeard())) {
            idlest = entry.second;
        }
    }
    if (!idlest || std::chrono::steady_clock::now() - idlest->lastHeard() < limits_.idleAfter) {
        return false;
    }
    idlest->close("idle while the client table is full");
    return true;
}

void Server::broadcast(const Event& event) {
    const std::string packet = link::encodePacket(link::code(event.code), event.payload);
    // A session may end while it is sent to, so walk a copy.
    auto sessions = sessions_;
    for (auto& [id, session] : sessions) {
        session->send(packet);
    }
    enforceBudget();
}

void Server::enforceBudget() {
    // The clients that read least pay for the budget, not the active ones.
    while (budget_.exceeded()) {
        auto hog =
            std::max_element(sessions_.begin(), sessions_.end(), [](const auto& a, const auto& b) {
                return a.second->unsentBytes() < b.second->unsentBytes();
            });
        if (hog == sessions_.end() || hog->second->unsentBytes() == 0) {
            return;
        }
        std::shared_ptr<Session> dropped = hog->second;
        dropped->close("too much unread output");
    }
}

void Server::stop() {
    listener_.close();
    auto sessions = sessions_;
    for (auto& [id, session] : sessions) {
        session->close();
    }
}

void Server::packetReceived(Session& session, std::uint32_t command, boost::json::object payload) {
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
                    {{"HALVO_REQUEST", std::to_string(command)}});
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
    sessions_.erase(session.id());
    if (handler_.freedMemory()) {
        worker_.post(returnFreeMemory);
    }
}

} // namespace halvo::daemon
