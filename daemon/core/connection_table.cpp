#include "daemon/core/connection_table.h"

#include "daemon/core/json_integer.h"
#include "util/json_file.h"

#include <algorithm>

namespace halvo::daemon {

namespace json = boost::json;

namespace {

util::Expected<void> readText(const json::object& record, std::string_view key, std::string& out) {
    const json::value* value = record.if_contains(key);
    if (value == nullptr || !value->is_string()) {
        return util::Failure{"\"" + std::string(key) + "\" must be a string"};
    }
    out = std::string(value->get_string());
    return {};
}

util::Expected<void> readConnection(const json::object& record, Connection& connection) {
    const json::value* type = record.if_contains("type");
    if (type != nullptr && *type == "net") {
        connection.kind = Connection::Kind::network;
        auto port = getBoundedInteger(record, "port", kMaxU16);
        if (!port) {
            return util::Failure{"\"port\" must be an integer from 0 to 65535"};
        }
        connection.port = static_cast<std::uint16_t>(*port);
        return readText(record, "addr", connection.addr);
    }
    if (type != nullptr && *type == "rdesk") {
        connection.kind = Connection::Kind::remoteDesktop;
        auto pid = getBoundedInteger(record, "pid", kMaxU32);
        if (!pid) {
            return util::Failure{"\"pid\" must be an integer from 0 to 4294967295"};
        }
        connection.pid = static_cast<std::uint32_t>(*pid);
        return readText(record, "app", connection.app);
    }
    return util::Failure{"\"type\" must be \"net\" or \"rdesk\""};
}

json::object toListRecord(const Connection& connection) {
    json::object record;
    if (connection.kind == Connection::Kind::network) {
        record["type"] = "net";
        record["addr"] = connection.addr;
        record["port"] = connection.port;
    } else {
        record["type"] = "rdesk";
        record["app"] = connection.app;
        record["pid"] = connection.pid;
    }
    return record;
}

// Host events name a peer by address and port; a remote-desktop session is
// named by its application and process id in those places.
Event hostEvent(const Connection& connection, std::string_view state) {
    json::object payload;
    if (connection.kind == Connection::Kind::network) {
        payload["type"] = "net";
        payload["addr"] = connection.addr;
        payload["port"] = connection.port;
    } else {
        payload["type"] = "rdesk";
        payload["addr"] = connection.app;
        payload["port"] = connection.pid;
    }
    payload["state"] = state;
    return Event{link::CommandCode::hostEvent, std::move(payload)};
}

} // namespace

util::Expected<std::vector<Connection>> parseConnectionFixture(const json::object& document) {
    const json::value* list = document.if_contains("connections");
    if (list == nullptr || !list->is_array()) {
        return util::Failure{"\"connections\" must be an array"};
    }
    std::vector<Connection> connections;
    std::size_t number = 0;
    for (const json::value& element : list->get_array()) {
        ++number;
        const std::string where = "connection #" + std::to_string(number) + ": ";
        if (!element.is_object()) {
            return util::Failure{where + "not an object"};
        }
        Connection connection;
        if (auto read = readConnection(element.get_object(), connection); !read) {
            return util::Failure{where + read.error()};
        }
        connections.push_back(std::move(connection));
    }
    return connections;
}

ConnectionTable::ConnectionTable(std::vector<Connection> connections)
    : connections_(std::move(connections)) {}

util::Expected<ConnectionTable> ConnectionTable::fromFile(const std::string& path) {
    auto document = util::readJsonObjectFile(path);
    if (!document) {
        return util::Failure{document.error()};
    }
    auto connections = parseConnectionFixture(document.value());
    if (!connections) {
        return util::Failure{path + ": " + connections.error()};
    }
    return ConnectionTable(std::move(connections).value());
}

json::object ConnectionTable::listReply() const {
    json::array list;
    list.reserve(connections_.size());
    for (const Connection& connection : connections_) {
        list.push_back(toListRecord(connection));
    }
    json::object reply;
    reply["connections"] = std::move(list);
    return reply;
}

std::vector<Event> ConnectionTable::dropHost(std::string_view host,
                                             std::optional<std::uint16_t> port) {
    std::vector<Event> events;
    std::erase_if(connections_, [&](const Connection& connection) {
        bool matches = connection.kind == Connection::Kind::network && connection.addr == host &&
                       (!port || connection.port == *port);
        if (matches) {
            events.push_back(hostEvent(connection, "dropped"));
        }
        return matches;
    });
    return events;
}

Event ConnectionTable::addNetwork(std::string addr, std::uint16_t port) {
    Connection connection;
    connection.addr = std::move(addr);
    connection.port = port;
    connections_.push_back(connection);
    return hostEvent(connection, "connected");
}

std::optional<Event> ConnectionTable::removeNetwork(std::string_view addr, std::uint16_t port,
                                                    std::string_view state) {
    auto found = std::find_if(connections_.begin(), connections_.end(), [&](const Connection& c) {
        return c.kind == Connection::Kind::network && c.addr == addr && c.port == port;
    });
    if (found == connections_.end()) {
        return std::nullopt;
    }
    Event event = hostEvent(*found, state);
    connections_.erase(found);
    return event;
}

std::vector<Event> ConnectionTable::killProcess(std::uint32_t pid) {
    std::vector<Event> events;
    std::erase_if(connections_, [&](const Connection& connection) {
        bool matches = connection.kind == Connection::Kind::remoteDesktop && connection.pid == pid;
        if (matches) {
            events.push_back(hostEvent(connection, "killed"));
        }
        return matches;
    });
    return events;
}

} // namespace halvo::daemon
