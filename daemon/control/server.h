// The daemon's listening socket and its clients.  Everything runs on the one
// thread that runs the io_context, so the tables need no locks; long work
// (large parses, loads, tests) runs on the off-loop worker and touches none of
// them.
#pragma once

#include "daemon/control/access_policy.h"
#include "daemon/control/client_limits.h"
#include "daemon/control/request_handler.h"
#include "daemon/control/session.h"
#include "daemon/core/event.h"
#include "daemon/platform/listening_socket.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
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
    std::optional<std::string> listen(const boost::asio::ip::tcp::endpoint& endpoint);
    // Starts accepting on a socket that already listens (passed by socket
    // activation), which the server then owns; the reason on failure.
    std::optional<std::string> adopt(int listeningSocket);
    boost::asio::ip::tcp::endpoint localEndpoint() const;

    // Pushes the event to every client.
    void broadcast(const Event& event);

    // Stops accepting and ends every session.
    void stop();

    std::size_t clientCount() const { return sessions_.size(); }

    void packetReceived(Session& session, std::uint32_t command,
                        boost::json::object payload) override;
    void sessionEnded(Session& session) override;
    OffLoopWorker& worker() override { return worker_; }

  private:
    void admit(boost::asio::ip::tcp::socket socket);
    // Why a new client of `uid` cannot be served now, or nothing; may drop a
    // long idle client to make room.
    std::optional<std::string> refusalFor(std::optional<uid_t> uid);
    // Drops the longest idle client that `candidates` accepts, if it has been
    // idle long enough; whether it did.
    template <typename Filter> bool makeRoom(Filter candidates);
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
    ListeningSocket listener_;
    std::map<std::uint64_t, std::shared_ptr<Session>> sessions_;
    std::uint64_t nextClientId_ = 1;
};

} // namespace halvo::daemon
