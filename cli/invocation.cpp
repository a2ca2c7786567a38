#include "cli/invocation.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace halvo::cli {

namespace {

namespace message {
constexpr const char* noArguments = "Error: arguments must be specified.\n";
constexpr const char* invalidArgument = "Error: Invalid argument.\n";
constexpr const char* deviceIdMissing = "Error: device Id is missing.\n";
constexpr const char* hostnameMissing = "Error: hostname is missing.\n";
constexpr const char* pidMissing = "Error: PID is missing.\n";
constexpr const char* connectionTypeMissing =
    "Error: Host or Remote Desktop connection should be specified.\n";
} // namespace message

struct CommandGroup {
    const char* word;
    Command bare; // the command when no sub-command follows
};

constexpr CommandGroup kGroups[] = {
    {"dev", Command::devList},
    {"conn", Command::connList},
    {"rule", Command::ruleList},
};

struct SubCommand {
    const char* group;
    const char* word;
    Command command;
    const char* options; // getopt's option string; null: no option parsing
};

constexpr SubCommand kSubCommands[] = {
    {"dev", "list", Command::devList, nullptr},   {"dev", "unplug", Command::devUnplug, nullptr},
    {"dev", "share", Command::devShare, nullptr}, {"dev", "block", Command::devBlock, nullptr},
    {"conn", "list", Command::connList, nullptr}, {"conn", "drop", Command::connDrop, "p:"},
    {"conn", "kill", Command::connKill, nullptr}, {"rule", "list", Command::ruleList, "N"},
    {"rule", "load", Command::ruleLoad, nullptr}, {"rule", "edit", Command::ruleEdit, nullptr},
    {"rule", "test", Command::ruleTest, "f:rh:"},
};

ParseResult fail(const char* text) {
    ParseResult result;
    result.error = UsageError{text};
    return result;
}

ParseResult accept(const Invocation& invocation) {
    ParseResult result;
    result.invocation = invocation;
    return result;
}

const CommandGroup* findGroup(const char* word) {
    for (const CommandGroup& group : kGroups) {
        if (std::strcmp(group.word, word) == 0) {
            return &group;
        }
    }
    return nullptr;
}

const SubCommand* findSubCommand(const char* group, const char* word) {
    for (const SubCommand& sub : kSubCommands) {
        if (std::strcmp(sub.group, group) == 0 && std::strcmp(sub.word, word) == 0) {
            return &sub;
        }
    }
    return nullptr;
}

// getopt keeps its position in globals; start every scan afresh.
void resetGetopt() {
#ifdef __GLIBC__
    optind = 0;
#else
    optreset = 1;
    optind = 1;
#endif
}

// Options must stand before the operand: stop at the first non-option word
// (glibc would otherwise permute the words).
std::string optionString(const char* options) {
#ifdef __GLIBC__
    return std::string("+") + options;
#else
    return options;
#endif
}

// Runs getopt over the words after the sub-command (the sub-command word
// standing as the program name, so that getopt's own messages name it).
// Returns the index of the first operand in `words`, or -1 when getopt
// refused an option.
int readOptions(int count, char** words, const char* options, Invocation& invocation,
                const char*& rulePath) {
    resetGetopt();
    const std::string optstring = optionString(options);
    int option = 0;
    while ((option = getopt(count, words, optstring.c_str())) != -1) {
        switch (option) {
        case 'p':
            invocation.port = static_cast<std::uint16_t>(std::atoi(optarg));
            invocation.hasPort = true;
            break;
        case 'N':
            invocation.withoutIndex = true;
            break;
        case 'f':
            rulePath = optarg;
            break;
        case 'r':
            invocation.remoteDesktop = true;
            invocation.host = nullptr;
            break;
        case 'h':
            invocation.host = optarg;
            invocation.remoteDesktop = false;
            break;
        default:
            return -1;
        }
    }
    return optind;
}

std::uint32_t deviceIdOf(const char* text) {
    return static_cast<std::uint32_t>(std::atoi(text));
}

// The operand checks of each command, given the first operand (or null).
ParseResult checkOperand(Invocation invocation, const char* operand, const char* rulePath,
                         bool rulePathGiven) {
    switch (invocation.command) {
    case Command::devUnplug:
    case Command::devShare:
    case Command::devBlock:
        if (operand == nullptr) {
            return fail(message::deviceIdMissing);
        }
        invocation.deviceId = deviceIdOf(operand);
        break;
    case Command::connDrop:
        if (operand == nullptr) {
            return fail(message::hostnameMissing);
        }
        invocation.host = operand;
        break;
    case Command::connKill:
        if (operand == nullptr) {
            return fail(message::pidMissing);
        }
        invocation.pid = static_cast<std::uint32_t>(std::strtoul(operand, nullptr, 10));
        break;
    case Command::ruleLoad:
        invocation.ruleSource = RuleSource{operand, operand == nullptr};
        break;
    case Command::ruleTest:
        if (rulePathGiven) {
            bool fromStdin = std::strcmp(rulePath, "-") == 0;
            invocation.ruleSource = RuleSource{fromStdin ? nullptr : rulePath, false};
        }
        if (operand == nullptr) {
            invocation.errorAfterRuleSource = UsageError{message::deviceIdMissing};
            break;
        }
        invocation.deviceId = deviceIdOf(operand);
        if (invocation.host == nullptr && !invocation.remoteDesktop) {
            invocation.errorAfterRuleSource = UsageError{message::connectionTypeMissing};
        }
        break;
    default:
        break;
    }
    return accept(invocation);
}

ParseResult parseSubCommand(int argc, char** argv, const SubCommand& sub) {
    Invocation invocation;
    invocation.command = sub.command;
    const char* rulePath = nullptr;
    const int wordCount = argc - 2; // from the sub-command word on
    char** words = argv + 2;
    int first = 1;
    if (sub.options != nullptr) {
        first = readOptions(wordCount, words, sub.options, invocation, rulePath);
        if (first < 0) {
            return fail(nullptr);
        }
    }
    const char* operand = first < wordCount ? words[first] : nullptr;
    return checkOperand(invocation, operand, rulePath, rulePath != nullptr);
}

} // namespace

ParseResult parseCommandLine(int argc, char** argv) {
    if (argc < 2) {
        return fail(message::noArguments);
    }
    const char* word = argv[1];
    if (const CommandGroup* group = findGroup(word)) {
        if (argc == 2) {
            Invocation invocation;
            invocation.command = group->bare;
            return accept(invocation);
        }
        const SubCommand* sub = findSubCommand(group->word, argv[2]);
        if (sub == nullptr) {
            return fail(message::invalidArgument);
        }
        return parseSubCommand(argc, argv, *sub);
    }
    if (std::strcmp(word, "monitor") == 0) {
        Invocation invocation;
        invocation.command = Command::monitor;
        return accept(invocation);
    }
    if (std::strcmp(word, "-h") == 0 || std::strcmp(word, "--help") == 0) {
        ParseResult result;
        result.help = true;
        return result;
    }
    return fail(message::invalidArgument);
}

} // namespace halvo::cli
