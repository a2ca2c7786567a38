// The command line: checks, messages, help placement and statuses, and the
// first request each command puts on the wire.
#include "tests/support/e2e.h"

#include <gtest/gtest.h>

namespace halvo::testkit {
namespace {

// getopt(3) words its own diagnostics: the GNU C library quotes the option
// letter, the BSD C libraries (macOS, FreeBSD) do not and call it illegal.
#if defined(__GLIBC__)
constexpr const char* kUnknownOption = "invalid option";
constexpr const char* kQuote = "'";
#else
constexpr const char* kUnknownOption = "illegal option";
constexpr const char* kQuote = "";
#endif

constexpr const char* kMissingArgument = "option requires an argument";

std::string getoptMessage(const char* command, const char* what, char option) {
    return std::string(command) + ": " + what + " -- " + kQuote + option + kQuote + "\n";
}

struct UsageCase {
    std::vector<std::string> args;
    std::string message; // before the help text on stderr
};

TEST(CommandLineTest, ErrorsPrintTheirMessageThenHelpOnStderrWithStatus22) {
    const UsageCase cases[] = {
        {{}, "Error: arguments must be specified.\n"},
        {{"bogus"}, "Error: Invalid argument.\n"},
        {{"Dev"}, "Error: Invalid argument.\n"},
        {{"dev", "bogus"}, "Error: Invalid argument.\n"},
        {{"conn", "List"}, "Error: Invalid argument.\n"},
        {{"dev", "unplug"}, "Error: device Id is missing.\n"},
        {{"dev", "share"}, "Error: device Id is missing.\n"},
        {{"dev", "block"}, "Error: device Id is missing.\n"},
        {{"conn", "drop"}, "Error: hostname is missing.\n"},
        {{"conn", "drop", "-p", "5"}, "Error: hostname is missing.\n"},
        {{"conn", "kill"}, "Error: PID is missing.\n"},
        {{"rule", "test", "-r"}, "Error: device Id is missing.\n"},
        {{"rule", "test", "5"}, "Error: Host or Remote Desktop connection should be specified.\n"},
        {{"rule", "list", "-x"}, getoptMessage("list", kUnknownOption, 'x')},
        {{"conn", "drop", "-p"}, getoptMessage("drop", kMissingArgument, 'p')},
        {{"rule", "test", "-h"}, getoptMessage("test", kMissingArgument, 'h')},
        {{"rule", "test", "-q", "-r", "5"}, getoptMessage("test", kUnknownOption, 'q')},
    };
    for (const UsageCase& c : cases) {
        RunResult run = runHalvoctl(c.args);
        EXPECT_TRUE(finished(run, 22, "", c.message + helpText()))
            << testing::PrintToString(c.args);
    }
}

TEST(CommandLineTest, HelpIsOnStdoutWithStatus0OnlyAsTheFirstWord) {
    for (const char* word : {"-h", "--help"}) {
        RunResult run = runHalvoctl({word, "ignored"});
        EXPECT_TRUE(finished(run, 0, helpText(), ""));
    }
}

TEST(CommandLineTest, NoDaemonEndsWithTheReasonAndStatus5) {
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"dev"}, {"conn", "list"}, {"monitor"}, {"rule", "edit"}}) {
        RunResult run = runHalvoctl(args);
        EXPECT_TRUE(finished(run, 5, "", "\nconnection cannot be established\n"))
            << testing::PrintToString(args);
    }
}

TEST(CommandLineTest, RuleFileIsReadBeforeTheOtherChecks) {
    RunResult missingFile = runHalvoctl({"rule", "test", "-f", "/nonexistent/rules", "5"});
    EXPECT_TRUE(finished(missingFile, 5, "", "Error loading rules from /nonexistent/rules.\n"));

    RunOptions stdinRules;
    stdinRules.stdinData = "share\n";
    RunResult noType = runHalvoctl({"rule", "test", "-f", "-", "5"}, stdinRules);
    // No stdin notice on stdout for rule test -f -.
    EXPECT_TRUE(
        finished(noType, 22, "",
                 "Error: Host or Remote Desktop connection should be specified.\n" + helpText()));

    stdinRules.stdinData = "share\nbogus\n";
    RunResult badRules = runHalvoctl({"rule", "test", "-f", "-"}, stdinRules);
    EXPECT_TRUE(finished(badRules, 5, "", "Parsing error at rule #2\n"));
}

struct FirstRequestCase {
    std::vector<std::string> args;
    std::vector<std::string> sent;
};

// The daemon never answers: each command's first request is all it sends.
TEST(CommandLineTest, EachCommandSendsItsFirstRequest) {
    const FirstRequestCase cases[] = {
        {{"dev", "list", "extra"}, {"0"}},
        {{"dev", "unplug", "abc"}, {R"(3 {"id":0})"}},
        {{"dev", "unplug", "-1"}, {R"(3 {"id":4294967295})"}},
        {{"conn", "drop", "-p", "70000", "h"}, {R"(2 {"host":"h","port":4464})"}},
        {{"conn", "drop", "-p", "x", "h"}, {R"(2 {"host":"h","port":0})"}},
        {{"conn", "drop", "%s%n%x", "-p", "5"}, {R"(2 {"host":"%s%n%x"})"}},
        {{"conn", "kill", "4294967297"}, {R"(2 {"pid":1})"}},
        {{"rule", "edit"}, {"6"}},
        {{"monitor", "anything"}, {}},
    };
    for (const FirstRequestCase& c : cases) {
        ScriptedDaemon daemon;
        RunOptions options;
        options.timeout = std::chrono::milliseconds(300);
        Exchange exchange = runAgainst(daemon, c.args, options);
        EXPECT_TRUE(exchange.run.timedOut) << "halvoctl waits for the reply";
        EXPECT_EQ(describe(exchange.sent), c.sent) << testing::PrintToString(c.args);
    }
}

} // namespace
} // namespace halvo::testkit
