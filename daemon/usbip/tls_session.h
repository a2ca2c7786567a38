// One remote host on the TLS port: the handshake (its certificate verified
// against the client CA), then its request and the reply inside TLS, as in
// clear.  The host's certificate names are its names for the rules.  An
// accepted import hands the socket to the kernel only when the kernel
// holds the session's keys both ways and nothing was read past the
// request; otherwise the import is refused (DEV_ERR), never shared in
// clear.  No TLS record is sent after the hand-off: the session is freed
// without a close_notify.
#pragma once

#include "daemon/core/share_table.h"
#include "daemon/usbip/exchange.h"
#include "daemon/usbip/protocol.h"
#include "tls/connection.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace halvo::daemon::usbip {

class Server;

class TlsSession : public Exchange, public std::enable_shared_from_this<TlsSession> {
  public:
    TlsSession(Server& server, std::uint64_t id, boost::asio::ip::tcp::socket socket,
               RemoteHost host, const tls::Context& context);

    void start() override;
    void finish() override;

  private:
    // Runs `attempt` until it is done, waiting for the socket as it asks,
    // then `next`; a failure is logged and ends the session.
    template <typename Attempt, typename Next> void drive(Attempt attempt, Next next);
    void shaken();
    void readMore();
    void answer(const Request& request);
    void answerImport(const std::string& busId);
    void reply(std::vector<std::uint8_t> bytes);
    void warn(const std::string& message) const;
    // What the host had not done when its time ran out.
    const char* lateStep() const;

    Server& server_;
    std::uint64_t id_;
    boost::asio::ip::tcp::socket socket_;
    boost::asio::steady_timer deadline_;
    std::optional<tls::Connection> tls_;
    std::string setUpProblem_;
    RequestParser parser_;
    std::array<std::uint8_t, 64> scratch_{};
    std::vector<std::uint8_t> out_;
    std::size_t written_ = 0;
    RemoteHost host_;
    bool shaken_ = false; // the handshake is done
    bool finished_ = false;
};

} // namespace halvo::daemon::usbip
