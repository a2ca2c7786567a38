// The active connections: network peers (address, port) and remote-desktop
// sessions (application, process id).  Hosts that import a device over
// USB/IP are added and removed as their shares start and end; the others
// come from a fixture ({"connections": [...]}, records as in the connection
// list) and are emptied by drop and kill requests.  A kill ends the session in the table only: the
// process ids are the fixture's, so no signal is ever sent.
#pragma once

#include "daemon/core/event.h"
#include "util/expected.h"

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::daemon {

struct Connection {
    enum class Kind { network, remoteDesktop };
    Kind kind = Kind::network;
    // Network connections.
    std::string addr;
    std::uint16_t port = 0;
    // Remote-desktop connections.
    std::string app;
    std::uint32_t pid = 0;
};

// The fixture's connections, or the first fault found ("connection #N: ...").
util::Expected<std::vector<Connection>> parseConnectionFixture(const boost::json::object& document);

class ConnectionTable {
  public:
    explicit ConnectionTable(std::vector<Connection> connections = {});

    static util::Expected<ConnectionTable> fromFile(const std::string& path);

    // The connection-list reply: {"connections": [...]}.
    boost::json::object listReply() const;

    // Drops the network connections from `host` (only the one on `port` when
    // given) and returns one host event ("dropped") per connection; none
    // when nothing matched.
    std::vector<Event> dropHost(std::string_view host, std::optional<std::uint16_t> port);

    // Adds the network peer and returns its host event ("connected").
    Event addNetwork(std::string addr, std::uint16_t port);

    // Removes the network peer, if present, and returns its host event with
    // `state`.
    std::optional<Event> removeNetwork(std::string_view addr, std::uint16_t port,
                                       std::string_view state);

    // Ends the remote-desktop connection of process `pid`; its host event
    // ("killed"), or none when no such connection exists.
    std::vector<Event> killProcess(std::uint32_t pid);

    const std::vector<Connection>& connections() const { return connections_; }

  private:
    std::vector<Connection> connections_;
};

} // namespace halvo::daemon
