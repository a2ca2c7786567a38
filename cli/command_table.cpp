#include "cli/command_table.h"

#include "cli/commands.h"

#include <cstdlib>
#include <cstring>

namespace halvo::cli {

namespace {

namespace message {
constexpr const char* deviceIdMissing = "Error: device Id is missing.\n";
constexpr const char* hostnameMissing = "Error: hostname is missing.\n";
constexpr const char* pidMissing = "Error: PID is missing.\n";
constexpr const char* connectionTypeMissing =
    "Error: Host or Remote Desktop connection should be specified.\n";
} // namespace message

// atoi, not a checked conversion: a word that is not a number is sent as 0.
std::uint32_t deviceIdOf(const char* text) {
    return static_cast<std::uint32_t>(std::atoi(text));
}

std::optional<UsageError> takeNothing(Invocation&, const char*, const char*) {
    return std::nullopt;
}

std::optional<UsageError> takeDeviceId(Invocation& invocation, const char* operand, const char*) {
    if (operand == nullptr) {
        return UsageError{message::deviceIdMissing};
    }
    invocation.deviceId = deviceIdOf(operand);
    return std::nullopt;
}

std::optional<UsageError> takeHost(Invocation& invocation, const char* operand, const char*) {
    if (operand == nullptr) {
        return UsageError{message::hostnameMissing};
    }
    invocation.host = operand;
    return std::nullopt;
}

std::optional<UsageError> takePid(Invocation& invocation, const char* operand, const char*) {
    if (operand == nullptr) {
        return UsageError{message::pidMissing};
    }
    invocation.pid = static_cast<std::uint32_t>(std::strtoul(operand, nullptr, 10));
    return std::nullopt;
}

std::optional<UsageError> takeRulePath(Invocation& invocation, const char* operand, const char*) {
    invocation.ruleSource = RuleSource{operand, operand == nullptr};
    return std::nullopt;
}

// The rule file is read before the operands are judged, so their errors
// wait in `errorAfterRuleSource`.
std::optional<UsageError> takeRuleTest(Invocation& invocation, const char* operand,
                                       const char* rulePath) {
    if (rulePath != nullptr) {
        const bool fromStdin = std::strcmp(rulePath, "-") == 0;
        invocation.ruleSource = RuleSource{fromStdin ? nullptr : rulePath, false};
    }
    if (operand == nullptr) {
        invocation.errorAfterRuleSource = UsageError{message::deviceIdMissing};
        return std::nullopt;
    }
    invocation.deviceId = deviceIdOf(operand);
    if (invocation.host == nullptr && !invocation.remoteDesktop) {
        invocation.errorAfterRuleSource = UsageError{message::connectionTypeMissing};
    }
    return std::nullopt;
}

constexpr CommandRow kCommands[] = {
    {"dev", "list", true, nullptr, takeNothing, installDeviceList},
    {"dev", "unplug", false, nullptr, takeDeviceId, installDeviceUnplug},
    {"dev", "share", false, nullptr, takeDeviceId, installDeviceShare},
    {"dev", "block", false, nullptr, takeDeviceId, installDeviceBlock},
    {"conn", "list", true, nullptr, takeNothing, installConnectionList},
    {"conn", "drop", false, "p:", takeHost, installConnectionDrop},
    {"conn", "kill", false, nullptr, takePid, installConnectionKill},
    {"rule", "list", true, "N", takeNothing, installRuleList},
    {"rule", "load", false, nullptr, takeRulePath, installRuleLoad},
    {"rule", "edit", false, nullptr, takeNothing, installRuleEdit},
    {"rule", "test", false, "f:rh:", takeRuleTest, installRuleTest},
    {"monitor", nullptr, true, nullptr, takeNothing, installMonitor},
};

} // namespace

std::span<const CommandRow> commandTable() {
    return kCommands;
}

} // namespace halvo::cli
