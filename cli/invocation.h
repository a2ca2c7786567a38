// The command line, read and checked into one invocation.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace halvo::cli {

struct CommandRow;

// Where `rule load` and `rule test -f` take their rule set from.
struct RuleSource {
    const char* path = nullptr; // null: standard input
    bool announceStdin = false; // print the "(reading from stdin...)" notice
};

// A command-line error: its message (possibly empty, when getopt has
// already spoken) and the help text, with status 22.
struct UsageError {
    const char* message;
};

struct Invocation {
    const CommandRow* command = nullptr; // a row of the command table
    std::uint32_t deviceId = 0;
    std::uint32_t pid = 0;
    const char* host = nullptr; // points into argv
    std::uint16_t port = 0;
    bool hasPort = false;
    bool withoutIndex = false;
    bool remoteDesktop = false;
    // Set for the commands that load a rule set before the daemon is
    // contacted.
    std::optional<RuleSource> ruleSource;
    // A check that is made only once the rule set has been read (so that a
    // bad rule file is reported first).
    std::optional<UsageError> errorAfterRuleSource;
};

// What reading the command line gave: an invocation, a request for help
// (status 0), or an error (status 22).
struct ParseResult {
    std::optional<Invocation> invocation;
    std::optional<UsageError> error;
    bool help = false;
};

ParseResult parseCommandLine(int argc, char** argv);

} // namespace halvo::cli
