// The USB/IP front end: accepts remote hosts, answers each one's request
// (a device list, or an import that hands the connection to the kernel)
// and then lets go of the connection.  It runs on the daemon's one event
// loop; the share table decides what each host sees and may import.
//
// A host that sends a malformed request (another version, an unknown
// operation, a bus id without its NUL), closes mid-request or does not finish
// its exchange in time loses its own connection only.  No host takes more
// than its share of places (see ServerSettings); the connections turned away
// are logged, a flood of them as a few lines and a count.
#pragma once

#include "daemon/core/event.h"
#include "daemon/core/log_throttle.h"
#include "daemon/core/share_table.h"
#include "daemon/platform/listening_socket.h"
#include "daemon/usbip/server_settings.h"
#include "tls/context.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace halvo::daemon::usbip {

class Exchange;

class Server {
  public:
    using EventSink = std::function<void(const Event&)>;

    Server(boost::asio::io_context& io, ShareTable& shares, EventSink sink,
           ServerSettings settings = {});
    ~Server();

    // Binds and starts accepting and watching shares; the reason on failure.
    util::Expected<void> listen(const boost::asio::ip::tcp::endpoint& endpoint);
    // The same for a socket already listening (socket activation).
    util::Expected<void> adopt(int listeningSocket);
    boost::asio::ip::tcp::endpoint localEndpoint() const;

    // Stops accepting and drops the hosts still sending requests; shares
    // stay (the share table ends them).  Logs the refusals not yet counted.
    void stop();

    // Makes this the TLS port; before listening.
    void useTls(tls::Context context) { tls_ = std::move(context); }

    // Called by sessions.
    void publish(const std::vector<Event>& events);
    void sessionEnded(std::uint64_t id);
    ShareTable& shares() { return shares_; }
    const ServerSettings& settings() const { return settings_; }

  private:
    // Starts watching shares once listening; passes on why listening failed.
    util::Expected<void> started(util::Expected<void> listening);
    void admit(boost::asio::ip::tcp::socket socket);
    // Why a new connection of `host` (its key) is turned away, if it is.
    std::optional<std::string> refusal(const std::string& host) const;
    void logRefusal(const std::string& peer, const std::string& reason);
    void pollShares();

    struct Place {
        std::shared_ptr<Exchange> session;
        std::string host;
    };

    ShareTable& shares_;
    EventSink sink_;
    ServerSettings settings_;
    ListeningSocket listener_;
    boost::asio::steady_timer poll_;
    std::map<std::uint64_t, Place> sessions_;
    // Each host's (by key) connections in `sessions_`.
    std::map<std::string, std::size_t> placesOfHost_;
    // Set on the TLS port: every host's exchange runs inside TLS.
    std::optional<tls::Context> tls_;
    std::uint64_t nextId_ = 1;
    LogThrottle refusals_;
};

} // namespace halvo::daemon::usbip
