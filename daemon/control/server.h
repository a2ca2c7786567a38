// The daemon's listening socket and its clients.  Everything runs on the one
// thread that runs the io_context, so the tables need no locks; long work
// (large parses, loads, tests) runs on the off-loop worker and touches none of
// them.
//
// Admission: each user holds at most its share of the table, and the last
// places of the table (the reserve) are for administrators only. When the
// table or the user's share is full, a client that is silent (no request
// since it connected) or idle long enough makes room; an administrator
// displaces another user's client if need be, and so does one that comes
// while the daemon is out of descriptors (anyone else is then turned away).
// A client turned away is closed unanswered, and the refusals are logged at
// a bounded rate.
#pragma once

#include "daemon/control/access_policy.h"
#include "daemon/control/client_limits.h"
#include "daemon/control/request_handler.h"
#include "daemon/control/session.h"
#include "daemon/core/event.h"
#include "daemon/core/log_throttle.h"
#include "daemon/platform/listening_socket.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace halvo::daemon {

class Server final : public SessionHost {
  public:
    // Each client's local user is looked up when it connects; `access` says
    // what it may change, `limits` how much of the daemon it may hold.
    Server(boost::asio::io_context& io, RequestHandler& handler, AccessPolicy access,
           ClientLimits limits = {});

    // Binds and starts accepting; the reason on failure.
    util::Expected<void> listen(const boost::asio::ip::tcp::endpoint& endpoint);
    // Starts accepting on a socket that already listens (passed by socket
    // activation), which the server then owns; the reason on failure.
    util::Expected<void> adopt(int listeningSocket);
    boost::asio::ip::tcp::endpoint localEndpoint() const;

    // Pushes the event to every client.
    void broadcast(const Event& event);

    // Stops accepting and ends every session.
    void stop();

    std::size_t clientCount() const { return clients_.size(); }

    void packetReceived(Session& session, std::uint32_t command,
                        boost::json::object payload) override;
    void sessionEnded(Session& session) override;
    OffLoopWorker& worker() override { return worker_; }

  private:
    struct Client {
        std::shared_ptr<Session> session;
        std::chrono::steady_clock::time_point connected = std::chrono::steady_clock::now();
        // Whether it has made a request; a silent client makes room sooner.
        bool asked = false;
    };

    // `scarce`: the connection came while the daemon was out of descriptors.
    void admit(boost::asio::ip::tcp::socket socket, bool scarce);
    // Why a new client cannot be served now, or nothing; may drop another
    // client to make room.
    std::optional<std::string> refusalFor(std::optional<uid_t> uid, bool administrator,
                                          bool scarce);
    // Drops the client heard from least recently among `candidates`: one
    // that may make room (silent or idle long enough), or any with
    // `evenIfBusy`; whether it did.
    template <typename Filter> bool makeRoom(Filter candidates, bool evenIfBusy);
    bool mayMakeRoom(const Client& client, std::chrono::steady_clock::time_point now) const;
    // Drops the clients with the most unsent output while the shared budget
    // is exceeded.
    void enforceBudget();
    // Sends the outcome of `finish` as the reply to the session's request.
    void answer(Session& session, std::uint32_t command, const RequestHandler::Finish& finish);

    RequestHandler& handler_;
    AccessPolicy access_;
    ClientLimits limits_;
    MemoryBudget budget_;
    OffLoopWorker worker_;
    LogThrottle turnedAway_;
    ListeningSocket listener_;
    std::map<std::uint64_t, Client> clients_;
    std::map<std::optional<uid_t>, std::size_t> clientsOfUser_;
    std::uint64_t nextClientId_ = 1;
};

} // namespace halvo::daemon
