#include "cli/commands.h"
#include "cli/exit_status.h"
#include "cli/reply_status.h"
#include "link/packet.h"
#include "rulefiles/editor_session.h"
#include "rulefiles/rule_file_writer.h"
#include "rulefiles/rule_sources.h"
#include "rules/rule_printer.h"
#include "util/json_fields.h"
#include "util/text_buffer.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace halvo::cli {

using link::CommandCode;
using link::QVHalvoIPCClient;
namespace json = boost::json;

json::array prepareRuleSet(const RuleSource& source) {
    if (source.announceStdin) {
        std::puts("(reading from stdin. Press ^D to finish.)");
    }
    std::optional<json::array> rules = rulefiles::load_rule_file(source.path);
    if (!rules) {
        std::exit(exitStatus::failure);
    }
    return std::move(*rules);
}

namespace {

// Every rule transaction opens with code 6; the commands below go on only
// on a strict "ok".
void requireOk(const json::object& reply) {
    if (!isStrictOk(reply)) {
        exitInternalError();
    }
}

void startTransaction(QVHalvoIPCClient& client) {
    client.startRuleTransaction();
}

void listRulesOnceOpen(QVHalvoIPCClient& client, const json::object& reply) {
    requireOk(reply);
    client.getRuleList();
}

// The commit that ends `rule load` and `rule edit` (no path ever rolls
// back: a failure ends the process with the transaction open).
void commitOnLoaded(QVHalvoIPCClient& client, const json::object& reply) {
    requireOk(reply);
    client.endRuleTransaction(true);
}

} // namespace

void installRuleList(CommandContext& context) {
    const std::uint32_t numbered = context.invocation.withoutIndex ? 0 : 1;
    context.onConnected(startTransaction);
    context.onData(
        [numbered](QVHalvoIPCClient& client, std::uint32_t code, const json::object& reply) {
            switch (static_cast<CommandCode>(code)) {
            case CommandCode::startRuleTransaction:
                listRulesOnceOpen(client, reply);
                return;
            case CommandCode::ruleList:
                std::exit(rules::outputRuleList(reply, numbered, stdout));
            default:
                return;
            }
        });
}

void installRuleLoad(CommandContext& context) {
    std::shared_ptr<RuleSlots> slots = context.slots;
    context.onConnected(startTransaction);
    context.onData(
        [slots](QVHalvoIPCClient& client, std::uint32_t code, const json::object& reply) {
            switch (static_cast<CommandCode>(code)) {
            case CommandCode::startRuleTransaction:
                requireOk(reply);
                if (!client.loadRuleList(slots->ruleSet ? &*slots->ruleSet : nullptr)) {
                    exitInternalError();
                }
                return;
            case CommandCode::loadRuleList:
                commitOnLoaded(client, reply);
                return;
            case CommandCode::endRuleTransaction:
                requireOk(reply);
                std::exit(exitStatus::success);
            default:
                return;
            }
        });
}

namespace {

// The user edits the daemon's rules in a private copy while the link and
// the transaction wait. The copy stays on disk until the daemon has taken
// the edited set, so no failure loses the user's edits.
void editAndLoad(QVHalvoIPCClient& client, RuleSlots& slots, const json::object& reply) {
    std::optional<std::string> path = rulefiles::rules2file(reply);
    if (!path) {
        std::exit(exitStatus::failure);
    }
    slots.editPath = std::move(*path);
    slots.ruleSet = rulefiles::loadRulesFromEditor(slots.editPath);
    if (!slots.ruleSet) {
        std::exit(exitStatus::failure);
    }
    if (!client.loadRuleList(&*slots.ruleSet)) {
        exitInternalError();
    }
}

} // namespace

void installRuleEdit(CommandContext& context) {
    std::shared_ptr<RuleSlots> slots = context.slots;
    context.onConnected(startTransaction);
    context.onData(
        [slots](QVHalvoIPCClient& client, std::uint32_t code, const json::object& reply) {
            switch (static_cast<CommandCode>(code)) {
            case CommandCode::startRuleTransaction:
                listRulesOnceOpen(client, reply);
                return;
            case CommandCode::ruleList:
                editAndLoad(client, *slots, reply); // the list's own status is not looked at
                return;
            case CommandCode::loadRuleList:
                commitOnLoaded(client, reply);
                return;
            case CommandCode::endRuleTransaction:
                requireOk(reply);
                unlink(slots->editPath.c_str());
                std::puts("Sharing rules have been successfully updated.");
                std::exit(exitStatus::success);
            default:
                return;
            }
        });
}

namespace {

constexpr const char* kTestSubject = "Device";

// rule test checks every packet, whatever its code, before looking at it.
void requireTestStatusOk(const json::object& reply) {
    switch (readStatus(reply)) {
    case ReplyStatus::ok:
        return;
    case ReplyStatus::notFound:
        printStatusAndExit(exitStatus::notFound, kTestSubject);
    default:
        printStatusAndExit(exitStatus::failure, kTestSubject);
    }
}

[[noreturn]] void printVerdict(const json::object& reply) {
    std::optional<std::string_view> verdict = util::getString(reply, "verdict");
    if (!verdict) {
        printStatusAndExit(exitStatus::failure, kTestSubject);
    }
    util::writeCString(stdout, *verdict);
    std::fputc('\n', stdout);
    printStatusAndExit(exitStatus::success, kTestSubject);
}

} // namespace

void installRuleTest(CommandContext& context) {
    std::shared_ptr<RuleSlots> slots = context.slots;
    const std::uint32_t deviceId = context.invocation.deviceId;
    const bool remoteDesktop = context.invocation.remoteDesktop;
    const char* host = context.invocation.host;
    auto sendTest = [deviceId, remoteDesktop, host](QVHalvoIPCClient& client) {
        bool sent = remoteDesktop ? client.testRuleForDevice(deviceId, "rdesk", nullptr)
                                  : client.testRuleForDevice(deviceId, "net", host);
        if (!sent) {
            printStatusAndExit(exitStatus::failure, kTestSubject);
        }
    };
    context.onConnected(startTransaction);
    context.onData(
        [slots, sendTest](QVHalvoIPCClient& client, std::uint32_t code, const json::object& reply) {
            requireTestStatusOk(reply);
            switch (static_cast<CommandCode>(code)) {
            case CommandCode::startRuleTransaction:
                if (slots->ruleSet) {
                    // The set is loaded for the test only: it is never committed.
                    if (!client.loadRuleList(&*slots->ruleSet)) {
                        printStatusAndExit(exitStatus::failure, kTestSubject);
                    }
                    return;
                }
                sendTest(client);
                return;
            case CommandCode::loadRuleList:
                sendTest(client);
                return;
            case CommandCode::testRule:
                printVerdict(reply);
            default:
                return;
            }
        });
}

} // namespace halvo::cli
