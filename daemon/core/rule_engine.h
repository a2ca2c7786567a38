// How the daemon decides whether a device is shared with a connection.
//
// The rules are tried in order.  A rule matches when every condition it sets
// holds; a condition group with its negation key set ("notHost", "notName",
// "notHWID", "notSerial", "notPort", "notClass") holds when the plain
// condition does not:
//   "host"      the connection is a network one from a listed address
//               (compared as addresses: see rules/host_address.h), or one
//               whose verified TLS certificate holds a listed name
//   "rdesk"     true: a remote-desktop connection; false: a network one
//   "name"      the device name is ("is") or contains ("contains") the text
//   "built-in"  the device is (true) or is not (false) built in
//   "vid"...    vendor, then product, then revision, as many as the rule has
//   "serial"    the device serial equals the text
//   "port"      the device port equals the text
//   "class"...  class, then subclass, then protocol, as many as the rule has
// The last matching rule decides, except that a matching "quick" rule decides
// at once.  When no rule matches the default action decides.
#pragma once

#include "daemon/core/device.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::daemon {

enum class Action { share, block };

std::string_view toText(Action action);
std::optional<Action> parseAction(std::string_view text);

// The connection a device would be shared with.
struct Peer {
    bool remoteDesktop = false;
    // The network peer's address; unused for remote desktop.
    std::string addr;
    // The names of the peer's verified TLS certificate; none in clear.
    std::vector<std::string> names = {};
};

struct Verdict {
    Action action = Action::block;
    // 1-based number of the deciding rule; 0 when the default decided.
    std::size_t ruleNumber = 0;
};

// "share (rule #3)", "block (default)".
std::string describe(const Verdict& verdict);

// Whether `rule` (a record that passed validateRule) matches.
bool ruleMatches(const boost::json::object& rule, const Device& device, const Peer& peer);

Verdict evaluate(const boost::json::array& rules, const Device& device, const Peer& peer,
                 Action defaultAction);

} // namespace halvo::daemon
