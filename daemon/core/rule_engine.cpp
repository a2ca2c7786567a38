#include "daemon/core/rule_engine.h"

#include "rules/host_address.h"
#include "util/json_fields.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace halvo::daemon {

namespace json = boost::json;
using util::getFlag;
using util::getString;
using util::getU32;

namespace {

// A peer that proved its names with a certificate is also known by them;
// they compare as host names do, case aside.
bool namesPeer(std::string_view host, const Peer& peer) {
    return std::any_of(peer.names.begin(), peer.names.end(), [host](const std::string& name) {
        return std::equal(name.begin(), name.end(), host.begin(), host.end(), [](char a, char b) {
            return std::tolower(static_cast<unsigned char>(a)) ==
                   std::tolower(static_cast<unsigned char>(b));
        });
    });
}

// Compared as addresses; an entry that is no address (a host name) matches
// only a peer whose certificate holds that name: names are not resolved.
bool listsAddress(const json::object& rule, const Peer& peer) {
    if (peer.remoteDesktop) {
        return false;
    }
    const json::array* hosts = util::getArray(rule, "host");
    const std::optional<rules::HostAddress> peerAddress = rules::parseHostAddress(peer.addr);
    if (hosts == nullptr || !peerAddress) {
        return false;
    }
    for (const json::value& host : *hosts) {
        if (host.is_string() && (rules::parseHostAddress(host.get_string()) == peerAddress ||
                                 namesPeer(host.get_string(), peer))) {
            return true;
        }
    }
    return false;
}

bool selectsConnectionKind(const json::object& rule, const Peer& peer) {
    return getFlag(rule, "rdesk") == peer.remoteDesktop;
}

bool matchesName(const json::object& rule, const Device& device) {
    std::string_view pattern = getString(rule, "name").value_or("");
    if (getString(rule, "nameMatch") == "contains") {
        return std::string_view(device.name).find(pattern) != std::string_view::npos;
    }
    return device.name == pattern;
}

bool matchesBuiltIn(const json::object& rule, const Device& device) {
    return getFlag(rule, "built-in") == device.builtIn;
}

// Compares the keys in order, stopping at the first one the rule leaves out.
bool matchesTriple(const json::object& rule, const std::array<std::string_view, 3>& keys,
                   const std::array<std::uint32_t, 3>& actual) {
    for (std::size_t i = 0; i < keys.size(); ++i) {
        auto wanted = getU32(rule, keys[i]);
        if (!wanted) {
            break;
        }
        if (*wanted != actual[i]) {
            return false;
        }
    }
    return true;
}

bool matchesHwid(const json::object& rule, const Device& device) {
    return matchesTriple(rule, {"vid", "pid", "rev"}, {device.vid, device.pid, device.rev});
}

bool matchesClass(const json::object& rule, const Device& device) {
    return matchesTriple(rule, {"class", "subclass", "protocol"},
                         {device.deviceClass, device.subclass, device.protocol});
}

bool matchesSerial(const json::object& rule, const Device& device) {
    return getString(rule, "serial") == device.serial;
}

bool matchesPort(const json::object& rule, const Device& device) {
    return getString(rule, "port") == device.port;
}

struct ConditionGroup {
    // The group applies when the rule has this key.
    std::string_view key;
    // The key that inverts the group; empty for groups without one.
    std::string_view negationKey;
    bool (*holds)(const json::object& rule, const Device& device, const Peer& peer);
};

constexpr std::array<ConditionGroup, 8> kConditionGroups = {{
    {"host", "notHost",
     [](const json::object& r, const Device&, const Peer& p) { return listsAddress(r, p); }},
    {"rdesk", "",
     [](const json::object& r, const Device&, const Peer& p) {
         return selectsConnectionKind(r, p);
     }},
    {"name", "notName",
     [](const json::object& r, const Device& d, const Peer&) { return matchesName(r, d); }},
    {"built-in", "",
     [](const json::object& r, const Device& d, const Peer&) { return matchesBuiltIn(r, d); }},
    {"vid", "notHWID",
     [](const json::object& r, const Device& d, const Peer&) { return matchesHwid(r, d); }},
    {"serial", "notSerial",
     [](const json::object& r, const Device& d, const Peer&) { return matchesSerial(r, d); }},
    {"port", "notPort",
     [](const json::object& r, const Device& d, const Peer&) { return matchesPort(r, d); }},
    {"class", "notClass",
     [](const json::object& r, const Device& d, const Peer&) { return matchesClass(r, d); }},
}};

} // namespace

std::string_view toText(Action action) {
    return action == Action::share ? "share" : "block";
}

std::optional<Action> parseAction(std::string_view text) {
    if (text == "share") {
        return Action::share;
    }
    if (text == "block") {
        return Action::block;
    }
    return std::nullopt;
}

std::string describe(const Verdict& verdict) {
    std::string text(toText(verdict.action));
    if (verdict.ruleNumber == 0) {
        return text + " (default)";
    }
    return text + " (rule #" + std::to_string(verdict.ruleNumber) + ")";
}

bool ruleMatches(const json::object& rule, const Device& device, const Peer& peer) {
    for (const ConditionGroup& group : kConditionGroups) {
        if (!rule.contains(group.key)) {
            continue;
        }
        bool inverted =
            !group.negationKey.empty() && getFlag(rule, group.negationKey).value_or(false);
        if (group.holds(rule, device, peer) == inverted) {
            return false;
        }
    }
    return true;
}

Verdict evaluate(const json::array& rules, const Device& device, const Peer& peer,
                 Action defaultAction) {
    Verdict verdict{defaultAction, 0};
    for (std::size_t index = 0; index < rules.size(); ++index) {
        const json::object* rule = rules[index].if_object();
        if (rule == nullptr) {
            continue;
        }
        auto action = parseAction(getString(*rule, "action").value_or(""));
        if (!action || !ruleMatches(*rule, device, peer)) {
            continue;
        }
        verdict = Verdict{*action, index + 1};
        if (getFlag(*rule, "quick").value_or(false)) {
            break;
        }
    }
    return verdict;
}

} // namespace halvo::daemon
