#include "daemon/control/request_handler.h"

#include "daemon/core/json_integer.h"
#include "daemon/core/record_validation.h"

#include <algorithm>
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
                               ConnectionTable& connections, RuleStore& rules, Action defaultAction)
    : backend_(backend), devices_(devices), connections_(connections), rules_(rules),
      defaultAction_(defaultAction) {}

Outcome RequestHandler::handle(ClientId client, std::uint32_t command,
                               const json::object& request) {
    auto route =
        std::find_if(std::begin(kRoutes), std::end(kRoutes), [command](const Route& known) {
            return link::code(known.command) == command;
        });
    if (route == std::end(kRoutes)) {
        return status(kStatusUnknownCommand);
    }
    return (this->*route->handler)(client, request);
}

void RequestHandler::clientLeft(ClientId client) {
    rules_.rollback(client);
}

Outcome RequestHandler::listDevices(ClientId, const json::object&) {
    return Outcome{devices_.listReply(), {}};
}

Outcome RequestHandler::listConnections(ClientId, const json::object&) {
    return Outcome{connections_.listReply(), {}};
}

Outcome RequestHandler::killConnection(ClientId, const json::object& request) {
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
        events = connections_.dropHost(host->get_string(), port);
    }
    if (events.empty()) {
        return status(kStatusNotFound);
    }
    return status(kStatusOk, std::move(events));
}

Outcome RequestHandler::unplugDevice(ClientId, const json::object& request) {
    auto id = requestedId(request);
    if (!id) {
        return badRequest("\"id\" must be an integer from 0 to 4294967295");
    }
    const Device* device = devices_.find(*id);
    if (device == nullptr) {
        return status(kStatusNotFound);
    }
    if (auto error = backend_.unplug(*device)) {
        return status("cannot unplug the device: " + *error);
    }
    std::vector<Event> events;
    if (auto event = devices_.recordUnplug(*id)) {
        events.push_back(std::move(*event));
    }
    return status(kStatusOk, std::move(events));
}

Outcome RequestHandler::startTransaction(ClientId client, const json::object&) {
    return status(rules_.begin(client) ? kStatusOk : kStatusBusy);
}

Outcome RequestHandler::listRules(ClientId client, const json::object&) {
    json::object reply;
    reply["rules"] = rules_.rulesFor(client);
    return Outcome{std::move(reply), {}};
}

Outcome RequestHandler::loadRules(ClientId client, const json::object& request) {
    if (!rules_.holds(client)) {
        return status(kStatusNoTransaction);
    }
    const json::value* rules = request.if_contains("rules");
    if (rules == nullptr || !rules->is_array()) {
        return badRequest("\"rules\" must be an array");
    }
    auto accepted = validateRuleSet(rules->get_array());
    if (auto* error = std::get_if<std::string>(&accepted)) {
        return status(*error);
    }
    rules_.replace(client, std::get<json::array>(std::move(accepted)));
    return status(kStatusOk);
}

Outcome RequestHandler::insertDeviceRule(ClientId client, const json::object& request) {
    if (!rules_.holds(client)) {
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
    if (auto* error = std::get_if<std::string>(&accepted)) {
        return status(*error);
    }
    rules_.insertFirst(client, std::move(std::get<json::array>(accepted)[0].get_object()));
    return status(kStatusOk);
}

Outcome RequestHandler::testRules(ClientId client, const json::object& request) {
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
    Verdict verdict = evaluate(rules_.rulesFor(client), *device, peer, defaultAction_);
    Outcome outcome = status(kStatusOk);
    outcome.reply["verdict"] = describe(verdict);
    return outcome;
}

Outcome RequestHandler::endTransaction(ClientId client, const json::object& request) {
    if (!rules_.holds(client)) {
        return status(kStatusNoTransaction);
    }
    const json::value* action = request.if_contains("action");
    if (action != nullptr && *action == "rollback") {
        rules_.rollback(client);
        return status(kStatusOk);
    }
    if (action == nullptr || *action != "commit") {
        return badRequest("\"action\" must be \"commit\" or \"rollback\"");
    }
    if (auto error = rules_.commit(client)) {
        return status("cannot save the rules: " + *error);
    }
    return status(kStatusOk);
}

} // namespace halvo::daemon
