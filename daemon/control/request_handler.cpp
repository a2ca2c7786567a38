#include "daemon/control/request_handler.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/json_integer.h"
#include "daemon/core/peer_text.h"
#include "daemon/core/record_validation.h"

#include <algorithm>
#include <boost/json/serialize.hpp>
#include <iterator>
#include <memory>
#include <new>

namespace halvo::daemon {

namespace json = boost::json;
using link::CommandCode;

namespace {

Outcome status(std::string_view text, std::vector<Event> events = {}) {
    json::object reply;
    reply["status"] = text;
    return Outcome{std::move(reply), std::move(events)};
}

std::string who(const Caller& caller) {
    return uidText(caller.uid);
}

Outcome refuse(const Caller& caller, std::string_view what) {
    logActivity(LogLevel::warning, "refused to " + std::string(what) + ": permission denied",
                {{log_field::kUid, who(caller)}});
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

// Sets from this many rules are checked, tested and listed off the event
// loop; smaller ones take well under a millisecond.
constexpr std::size_t kOffLoopRules = 512;
// Rule sets from this size on are worth handing back to the system when freed.
constexpr std::size_t kLargeRuleSet = std::size_t{1} << 20;

Outcome memoryRefusal() {
    return status("busy: open rule transactions hold all the memory they may");
}

// Runs `work`, turning memory that runs out into a Finish that reports it.
template <typename Work> RequestHandler::Finish guarded(Work work) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return []() -> Outcome { throw std::bad_alloc(); };
    }
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

std::optional<RequestHandler::OffLoopWork>
RequestHandler::offLoop(const Caller& caller, std::uint32_t command, json::object& request) {
    if (command == link::code(CommandCode::loadRuleList)) {
        const json::value* rules = request.if_contains("rules");
        if (!rules_.holds(caller.id) || rules == nullptr || !rules->is_array() ||
            rules->get_array().size() < kOffLoopRules) {
            return std::nullopt;
        }
        auto taken = std::make_shared<json::object>(std::move(request));
        return OffLoopWork([this, caller, taken, room = rules_.roomFor(caller.id)] {
            return guarded([&] {
                return Finish([this, caller, prepared = prepareLoad(*taken, room)]() mutable {
                    return finishLoad(caller, std::move(prepared));
                });
            });
        });
    }
    if (command == link::code(CommandCode::testRule) &&
        rules_.rulesFor(caller.id).size() >= kOffLoopRules) {
        auto question = testQuestion(request);
        auto* asked = std::get_if<TestQuestion>(&question);
        if (asked == nullptr) {
            return std::nullopt;
        }
        return OffLoopWork([set = rules_.snapshotFor(caller.id), asked = std::move(*asked),
                            fallback = defaultAction_] {
            const Verdict verdict = evaluate(*set, asked.device, asked.peer, fallback);
            return Finish([verdict] {
                Outcome outcome = status(kStatusOk);
                outcome.reply["verdict"] = describe(verdict);
                return outcome;
            });
        });
    }
    if (command == link::code(CommandCode::ruleList) &&
        rules_.rulesFor(caller.id).size() >= kOffLoopRules) {
        return OffLoopWork([set = rules_.snapshotFor(caller.id)] {
            return guarded([&] {
                json::object reply;
                reply["rules"] = *set;
                return Finish([text = json::serialize(reply)]() mutable {
                    return Outcome{{}, {}, std::move(text)};
                });
            });
        });
    }
    return std::nullopt;
}

void RequestHandler::clientLeft(ClientId client) {
    rules_.rollback(client);
}

bool RequestHandler::freedMemory() {
    return rules_.takeFreedBytes() >= kLargeRuleSet;
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
                {{log_field::kRequest, json::serialize(request)}, {log_field::kUid, who(caller)}});
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
    if (auto unplugged = backend_.unplug(*device); !unplugged) {
        logActivity(LogLevel::error, "unplug failed: " + unplugged.error(),
                    {{log_field::kDevice, device->port}, {log_field::kUid, who(caller)}});
        return status("cannot unplug the device: " + unplugged.error(), std::move(events));
    }
    logActivity(LogLevel::notice, "device unplugged",
                {{log_field::kDevice, device->port}, {log_field::kUid, who(caller)}});
    if (auto event = devices_.recordUnplug(*id)) {
        events.push_back(std::move(*event));
    }
    return status(kStatusOk, std::move(events));
}

Outcome RequestHandler::startTransaction(const Caller& caller, const json::object&) {
    if (!rules_.begin(caller.id, {caller.uid, caller.mayChange})) {
        logActivity(LogLevel::warning, "rule transaction refused: too many of this user",
                    {{log_field::kUid, who(caller)}});
        return status("busy: too many open rule transactions of this user (" +
                      std::to_string(rules_.limits().maxPerUser) + ")");
    }
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
    return finishLoad(caller, prepareLoad(request, rules_.roomFor(caller.id)));
}

RequestHandler::PreparedLoad RequestHandler::prepareLoad(const json::object& request,
                                                         std::size_t room) {
    PreparedLoad prepared;
    const json::value* rules = request.if_contains("rules");
    if (rules == nullptr || !rules->is_array()) {
        prepared.refusal = badRequest("\"rules\" must be an array");
        return prepared;
    }
    prepared.count = rules->get_array().size();
    auto accepted = validateRuleSet(rules->get_array(), &prepared.readBack);
    if (!accepted) {
        prepared.refusal = status(accepted.error());
        return prepared;
    }
    if (auto tooLarge = checkListFits(listSize(accepted.value()))) {
        prepared.refusal = std::move(*tooLarge);
        return prepared;
    }
    auto copy = copyWithin(accepted.value(), room);
    if (!copy) {
        prepared.refusal = memoryRefusal();
        return prepared;
    }
    prepared.rules = std::move(*copy);
    return prepared;
}

Outcome RequestHandler::finishLoad(const Caller& caller, PreparedLoad prepared) {
    if (!rules_.holds(caller.id)) {
        return status(kStatusNoTransaction);
    }
    if (!prepared.refusal && !rules_.replace(caller.id, std::move(prepared.rules))) {
        prepared.refusal = memoryRefusal();
    }
    if (!prepared.refusal) {
        return status(kStatusOk);
    }
    // A refused load is the client's business, yet its cause is worth a line:
    // attributed, never on standard error.
    const std::string message =
        "rule load refused: " + std::string(prepared.refusal->reply["status"].as_string());
    const std::string request = "load " + std::to_string(prepared.count) + " rules";
    if (prepared.readBack.empty()) {
        logActivity(LogLevel::notice, message,
                    {{log_field::kUid, who(caller)}, {log_field::kRequest, request}});
    } else {
        logActivity(LogLevel::notice, message,
                    {{log_field::kUid, who(caller)},
                     {log_field::kRequest, request},
                     {log_field::kDetail, prepared.readBack}});
    }
    return std::move(*prepared.refusal);
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
    const json::object& rule = accepted.value()[0].get_object();
    // One more element: the rule and its comma.
    const std::size_t grown =
        listSize(rules_.rulesFor(caller.id)) + json::serialize(rule).size() + 1;
    if (auto tooLarge = checkListFits(grown)) {
        return *tooLarge;
    }
    if (!rules_.insertFirst(caller.id, rule)) {
        return memoryRefusal();
    }
    return status(kStatusOk);
}

std::variant<RequestHandler::TestQuestion, Outcome>
RequestHandler::testQuestion(const json::object& request) const {
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
    return TestQuestion{*device, std::move(peer)};
}

Outcome RequestHandler::testRules(const Caller& caller, const json::object& request) {
    auto question = testQuestion(request);
    auto* asked = std::get_if<TestQuestion>(&question);
    if (asked == nullptr) {
        return std::get<Outcome>(std::move(question));
    }
    Verdict verdict =
        evaluate(rules_.rulesFor(caller.id), asked->device, asked->peer, defaultAction_);
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
                    {{log_field::kUid, who(caller)}});
        return status(kStatusConflict);
    case RuleStore::CommitOutcome::notSaved:
        logActivity(LogLevel::error, "commit failed: " + result.problem,
                    {{log_field::kUid, who(caller)}});
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
                {{log_field::kUid, who(caller)}});
    return status(kStatusOk, shares_.endRefused());
}

} // namespace halvo::daemon
