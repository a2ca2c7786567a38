#include "cli/invocation.h"

#include "cli/command_table.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace halvo::cli {

namespace {

namespace message {
constexpr const char* noArguments = "Error: arguments must be specified.\n";
constexpr const char* invalidArgument = "Error: Invalid argument.\n";
} // namespace message

ParseResult fail(const char* text) {
    ParseResult result;
    result.error = UsageError{text};
    return result;
}

ParseResult accept(const CommandRow& row) {
    ParseResult result;
    result.invocation = Invocation{};
    result.invocation->command = &row;
    return result;
}

bool sameWord(const char* a, const char* b) {
    return std::strcmp(a, b) == 0;
}

bool isGroup(const char* word) {
    for (const CommandRow& row : commandTable()) {
        if (sameWord(row.group, word)) {
            return true;
        }
    }
    return false;
}

// The row of `group` that `word` names; with a null word, the row the group
// means alone.
const CommandRow* findRow(const char* group, const char* word) {
    for (const CommandRow& row : commandTable()) {
        if (!sameWord(row.group, group)) {
            continue;
        }
        const bool matches =
            word == nullptr ? row.bare : row.word != nullptr && sameWord(row.word, word);
        if (matches) {
            return &row;
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

ParseResult parseSubCommand(int argc, char** argv, const CommandRow& row) {
    ParseResult result = accept(row);
    Invocation& invocation = *result.invocation;
    const char* rulePath = nullptr;
    const int wordCount = argc - 2; // from the sub-command word on
    char** words = argv + 2;
    int first = 1;
    if (row.options != nullptr) {
        first = readOptions(wordCount, words, row.options, invocation, rulePath);
        if (first < 0) {
            return fail(nullptr);
        }
    }
    const char* operand = first < wordCount ? words[first] : nullptr;
    if (std::optional<UsageError> error = row.checkOperand(invocation, operand, rulePath)) {
        return fail(error->message);
    }
    return result;
}

} // namespace

ParseResult parseCommandLine(int argc, char** argv) {
    if (argc < 2) {
        return fail(message::noArguments);
    }
    const char* group = argv[1];
    if (isGroup(group)) {
        const CommandRow* bare = findRow(group, nullptr);
        if (bare != nullptr && (argc == 2 || bare->word == nullptr)) {
            return accept(*bare);
        }
        const CommandRow* row = argc > 2 ? findRow(group, argv[2]) : nullptr;
        if (row == nullptr) {
            return fail(message::invalidArgument);
        }
        return parseSubCommand(argc, argv, *row);
    }
    if (sameWord(group, "-h") || sameWord(group, "--help")) {
        ParseResult result;
        result.help = true;
        return result;
    }
    return fail(message::invalidArgument);
}

} // namespace halvo::cli
