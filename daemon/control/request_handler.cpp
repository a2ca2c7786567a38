#include "daemon/control/request_handler.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/json_integer.h"
#include "daemon/core/record_validation.h"

#include <algorithm>
#include <boost/json/serialize.hpp>
#include <iterator>

namespace halvo::daemon {

namespace json = boost::json;
using link::CommandCode;

namespace {

Outcome status(std::string_view text, std::vector<Event> events = {}) {
    json::object reply;
    reply["status"] = text;
    return Outcome{std::move(reply), std::move(events)};
}

// The caller's uid for the log, or "none" for a client that is no local user.
std::string who(const Caller& caller) {
    return caller.uid ? std::to_string(*caller.uid) : std::string("none");
}

Outcome refuse(const Caller& caller, std::string_view what) {
    logActivity(LogLevel::warning, "refused to " + std::string(what) + ": permission denied",
                {{"HALVO_UID", who(caller)}});
    return status(kStatusPermissionDenied);
}

// The bytes of the rule list reply {"rules":[...]} for `rules`.
std::size_t listSize(const json::array& rules) {
    return json::serialize(rules).size() + std::string_view(R"({"rules":})").size();
}

// A rule list that could not be sent in one packet would break every later
// "rule list": refused before it is kept.
std::optional<Outcome> checkListFits(std::size_t replySize) {
    if (replySize <= link::kMaxPayloadSize) {
        return std::nullopt;
    }
    return status("refused: the rule list would take " + std::to_string(replySize) +
                  " bytes, more than one packet holds (" + std::to_string(link::kMaxPayloadSize) +
                  ")");
}

Outcome badRequest(std::string_view problem) {
    return status("bad request: " + std::string(problem));
}

// The device's rule: its exact hardware id, its serial when it has one, and
// its port, decided at once.
json::object ruleForDevice(const Device& device, Action action) {
    json::object rule;
    rule["action"] = toText(action);
    rule["quick"] = true;
    rule["vid"] = device.vid;
    rule["pid"] = device.pid;
    rule["rev"] = device.rev;
    if (!device.serial.empty()) {
        rule["serial"] = device.serial;
    }
    rule["port"] = device.port;
    return rule;
}

std::optional<std::uint32_t> requestedId(const json::object& request) {
    auto id = getBoundedInteger(request, "id", kMaxU32);
    if (!id) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(*id);
}

} // namespace

const RequestHandler::Route RequestHandler::kRoutes[] = {
    {CommandCode::deviceList, &RequestHandler::listDevices},
    {CommandCode::connectionList, &RequestHandler::listConnections},
    {CommandCode::killConnection, &RequestHandler::killConnection},
    {CommandCode::disconnectDevice, &RequestHandler::unplugDevice},
    {CommandCode::startRuleTransaction, &RequestHandler::startTransaction},
    {CommandCode::ruleList, &RequestHandler::listRules},
    {CommandCode::loadRuleList, &RequestHandler::loadRules},
    {CommandCode::insertRuleForDevice, &RequestHandler::insertDeviceRule},
    {CommandCode::testRule, &RequestHandler::testRules},
    {CommandCode::endRuleTransaction, &RequestHandler::endTransaction},
};

RequestHandler::RequestHandler(DeviceBackend& backend, DeviceTable& devices,
                               ConnectionTable& connections, RuleStore& rules, ShareTable& shares,
                               Action defaultAction)
    : backend_(backend), devices_(devices), connections_(connections), rules_(rules),
      shares_(shares), defaultAction_(defaultAction) {}

Outcome RequestHandler::handle(const Caller& caller, std::uint32_t command,
                               const json::object& request) {
    auto route =
        std::find_if(std::begin(kRoutes), std::end(kRoutes), [command](const Route& known) {
            return link::code(known.command) == command;
        });
    if (route == std::end(kRoutes)) {
        return status(kStatusUnknownCommand);
    }
    return (this->*route->handler)(caller, request);
}

void RequestHandler::clientLeft(ClientId client) {
    rules_.rollback(client);
}

Outcome RequestHandler::listDevices(const Caller&, const json::object&) {
    return Outcome{devices_.listReply(), {}};
}

Outcome RequestHandler::listConnections(const Caller&, const json::object&) {
    return Outcome{connections_.listReply(), {}};
}

Outcome RequestHandler::killConnection(const Caller& caller, const json::object& request) {
    if (!caller.mayChange) {
        return refuse(caller, "drop a connection");
    }
    std::vector<Event> events;
    if (request.contains("pid")) {
        auto pid = getBoundedInteger(request, "pid", kMaxU32);
        if (!pid) {
            return badRequest("\"pid\" must be an integer from 0 to 4294967295");
        }
        events = connections_.killProcess(static_cast<std::uint32_t>(*pid));
    } else {
        const json::value* host = request.if_contains("host");
        if (host == nullptr || !host->is_string()) {
            return badRequest("\"host\" (a string) or \"pid\" is required");
        }
        std::optional<std::uint16_t> port;
        if (request.contains("port")) {
            auto number = getBoundedInteger(request, "port", kMaxU16);
            if (!number) {
                return badRequest("\"port\" must be an integer from 0 to 65535");
            }
            port = static_cast<std::uint16_t>(*number);
        }
        events = shares_.endForHost(host->get_string(), port);
        std::vector<Event> others = connections_.dropHost(host->get_string(), port);
        events.insert(events.end(), others.begin(), others.end());
    }
    if (events.empty()) {
        return status(kStatusNotFound);
    }
    logActivity(LogLevel::notice, "connection dropped",
                {{"HALVO_REQUEST", json::serialize(request)}, {"HALVO_UID", who(caller)}});
    return status(kStatusOk, std::move(events));
}

Outcome RequestHandler::unplugDevice(const Caller& caller, const json::object& request) {
    if (!caller.mayChange) {
        return refuse(caller, "unplug a device");
    }
    auto id = requestedId(request);
    if (!id) {
        return badRequest("\"id\" must be an integer from 0 to 4294967295");
    }
    const Device* device = devices_.find(*id);
    if (device == nullptr) {
        return status(kStatusNotFound);
    }
    std::vector<Event> events = shares_.endForDevice(*id);
    if (auto error = backend_.unplug(*device)) {
        logActivity(LogLevel::error, "unplug failed: " + *error,
                    {{"HALVO_DEVICE", device->port}, {"HALVO_UID", who(caller)}});
        return status("cannot unplug the device: " + *error, std::move(events));
    }
    logActivity(LogLevel::notice, "device unplugged",
                {{"HALVO_DEVICE", device->port}, {"HALVO_UID", who(caller)}});
    if (auto event = devices_.recordUnplug(*id)) {
        events.push_back(std::move(*event));
    }
    return status(kStatusOk, std::move(events));
}

Outcome RequestHandler::startTransaction(const Caller& caller, const json::object&) {
    rules_.begin(caller.id);
    return status(kStatusOk);
}

Outcome RequestHandler::listRules(const Caller& caller, const json::object&) {
    json::object reply;
    reply["rules"] = rules_.rulesFor(caller.id);
    return Outcome{std::move(reply), {}};
}

Outcome RequestHandler::loadRules(const Caller& caller, const json::object& request) {
    if (!rules_.holds(caller.id)) {
        return status(kStatusNoTransaction);
    }
    const json::value* rules = request.if_contains("rules");
    if (rules == nullptr || !rules->is_array()) {
        return badRequest("\"rules\" must be an array");
    }
    auto accepted = validateRuleSet(rules->get_array());
    if (!accepted) {
        return status(accepted.error());
    }
    json::array& set = accepted.value();
    if (auto tooLarge = checkListFits(listSize(set))) {
        return *tooLarge;
    }
    rules_.replace(caller.id, std::move(set));
    return status(kStatusOk);
}

Outcome RequestHandler::insertDeviceRule(const Caller& caller, const json::object& request) {
    if (!rules_.holds(caller.id)) {
        return status(kStatusNoTransaction);
    }
    auto id = requestedId(request);
    if (!id) {
        return badRequest("\"id\" must be an integer from 0 to 4294967295");
    }
    const json::value* actionText = request.if_contains("action");
    auto action = actionText != nullptr && actionText->is_string()
                      ? parseAction(actionText->get_string())
                      : std::nullopt;
    if (!action) {
        return badRequest("\"action\" must be \"share\" or \"block\"");
    }
    const Device* device = devices_.find(*id);
    if (device == nullptr) {
        return status(kStatusNotFound);
    }
    json::array single;
    single.push_back(ruleForDevice(*device, *action));
    auto accepted = validateRuleSet(std::move(single));
    if (!accepted) {
        return status(accepted.error());
    }
    json::object& rule = accepted.value()[0].get_object();
    // One more element: the rule and its comma.
    const std::size_t grown =
        listSize(rules_.rulesFor(caller.id)) + json::serialize(rule).size() + 1;
    if (auto tooLarge = checkListFits(grown)) {
        return *tooLarge;
    }
    rules_.insertFirst(caller.id, std::move(rule));
    return status(kStatusOk);
}

Outcome RequestHandler::testRules(const Caller& caller, const json::object& request) {
    auto id = requestedId(request);
    if (!id) {
        return badRequest("\"id\" must be an integer from 0 to 4294967295");
    }
    const json::value* type = request.if_contains("type");
    Peer peer;
    if (type != nullptr && *type == "rdesk") {
        peer.remoteDesktop = true;
    } else if (type != nullptr && *type == "net") {
        const json::value* addr = request.if_contains("addr");
        if (addr == nullptr || !addr->is_string()) {
            return badRequest("\"addr\" (a string) is required for a network connection");
        }
        peer.addr = std::string(addr->get_string());
    } else {
        return badRequest("\"type\" must be \"net\" or \"rdesk\"");
    }
    const Device* device = devices_.find(*id);
    if (device == nullptr) {
        return status(kStatusNotFound);
    }
    Verdict verdict = evaluate(rules_.rulesFor(caller.id), *device, peer, defaultAction_);
    Outcome outcome = status(kStatusOk);
    outcome.reply["verdict"] = describe(verdict);
    return outcome;
}

Outcome RequestHandler::endTransaction(const Caller& caller, const json::object& request) {
    if (!rules_.holds(caller.id)) {
        return status(kStatusNoTransaction);
    }
    const json::value* action = request.if_contains("action");
    if (action != nullptr && *action == "rollback") {
        rules_.rollback(caller.id);
        return status(kStatusOk);
    }
    if (action == nullptr || *action != "commit") {
        return badRequest("\"action\" must be \"commit\" or \"rollback\"");
    }
    if (!caller.mayChange) {
        return refuse(caller, "commit rules");
    }
    RuleStore::CommitResult result = rules_.commit(caller.id);
    switch (result.outcome) {
    case RuleStore::CommitOutcome::noTransaction:
        return status(kStatusNoTransaction);
    case RuleStore::CommitOutcome::conflict:
        logActivity(LogLevel::notice, "commit refused: the rules changed meanwhile",
                    {{"HALVO_UID", who(caller)}});
        return status(kStatusConflict);
    case RuleStore::CommitOutcome::notSaved:
        logActivity(LogLevel::error, "commit failed: " + result.problem,
                    {{"HALVO_UID", who(caller)}});
        return status("cannot save the rules: " + result.problem);
    case RuleStore::CommitOutcome::committed:
        break;
    }
    if (!result.problem.empty()) {
        // The new file is in place, so the commit stands; it may not survive
        // a power loss.
        logActivity(LogLevel::warning, "rules saved but not synced: " + result.problem, {});
    }
    logActivity(LogLevel::notice,
                "rules committed: " + std::to_string(rules_.committed().size()) + " rules",
                {{"HALVO_UID", who(caller)}});
    return status(kStatusOk, shares_.endRefused());
}

} // namespace halvo::daemon
