// One remote host's connection until its request is answered and the reply
// taken, within the server's request timeout.
#pragma once

#include "daemon/core/share_table.h"
#include "daemon/usbip/exchange.h"
#include "daemon/usbip/protocol.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <vector>

namespace halvo::daemon::usbip {

class Server;

class Session : public Exchange, public std::enable_shared_from_this<Session> {
  public:
    Session(Server& server, std::uint64_t id, boost::asio::ip::tcp::socket socket, RemoteHost host);

    void start() override;
    // Closes the connection (the kernel keeps its own reference to an
    // imported one) and leaves the server.
    void finish() override;

  private:
    void readMore();
    void answer(const Request& request);
    void answerImport(const std::string& busId);
    void reply(std::vector<std::uint8_t> bytes);
    void dropLate();

    Server& server_;
    std::uint64_t id_;
    boost::asio::ip::tcp::socket socket_;
    boost::asio::steady_timer deadline_;
    RequestParser parser_;
    std::array<std::uint8_t, 64> scratch_{};
    std::vector<std::uint8_t> out_;
    RemoteHost host_;
    // The kernel carries the connection: it is no longer ours to reset.
    bool handedOff_ = false;
    bool finished_ = false;
};

} // namespace halvo::daemon::usbip
