// halvod as a program: start-up and its rules file.
#include "daemon/core/rule_text.h"
#include "tests/support/daemon_harness.h"

#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

using testkit::DaemonProcess;
using testkit::runHalvod;
using testkit::TempDir;

const std::string kDevices = std::string(HALVOD_DEMO_DIR) + "/devices.json";

// How each step of a save fails is the rules file's test; here the daemon
// loads what the file holds and clears what a killed save left behind.
TEST(HalvodProcessTest, StartLoadsTheRulesAndClearsWhatAnInterruptedSaveLeft) {
    TempDir scratch;
    const std::string rulesPath = scratch.write("halvod.rules", "share class 08\nblock\n");
    scratch.write(".halvod.rules.Ab12Cd", "share\n");
    auto daemon = DaemonProcess::start({"--devices", kDevices, "--rules", rulesPath});
    ASSERT_TRUE(daemon);
    EXPECT_EQ(testkit::committedRules(daemon->port()), *parseRuleText("share class 08\nblock\n"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(scratch.path()), {}), 1);
    EXPECT_TRUE(std::filesystem::exists(rulesPath));
}

TEST(HalvodProcessTest, StartFailuresSayWhy) {
    TempDir scratch;
    // The whole reason comes from the rules file's loader; here the start
    // stops on it.
    const std::string badRules = scratch.write(
        "bad.rules", "# two good rules, then a bad one\nshare\nblock rdesk\nshare rdesk host x\n");
    auto first = DaemonProcess::start({"--devices", kDevices});
    ASSERT_TRUE(first);
    const std::string taken = "127.0.0.1:" + std::to_string(first->port());

    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string line;
    };
    // clang-format off
    const Case kCases[] = {
        {{"--listen", taken, "--devices", kDevices},
         1,
         "halvod: cannot listen on " + taken + ": Address already in use"},
        {{"--listen", "localhost:1"},
         2,
         "halvod: --listen wants an IP address and a port, as 127.0.0.1:32999; \"localhost\" is "
         "a name\nTry \"halvod --help\" for the options."},
        {{"--devices", (scratch / "none.json").string()},
         1,
         "halvod: " + (scratch / "none.json").string() + ": No such file or directory"},
        {{"--devices", kDevices, "--connections", kDevices},
         1,
         "halvod: " + kDevices + ": \"connections\" must be an array"},
        {{"--devices", "/dev/zero"}, 1, "halvod: /dev/zero: larger than 256 MiB"},
        {{"--devices", kDevices, "--rules", (scratch / "none" / "rules").string()},
         1,
         "halvod: " + (scratch / "none").string() + ": the rules file's folder does not exist: "
         "create it, or give --rules PATH, or --rules-in-memory"},
        {{"--devices", kDevices, "--rules", badRules},
         1,
         "halvod: " + badRules + ":4:13: rule #3: \"host\" after \"rdesk\": a rule names either "
         "hosts or remote desktop"},
    };
    // clang-format on
    for (const Case& row : kCases) {
        auto result = runHalvod(row.arguments);
        EXPECT_EQ(result.status, row.status) << row.line;
        EXPECT_NE(result.err.find(row.line + "\n"), std::string::npos) << result.err;
    }
}

} // namespace
} // namespace halvo::daemon
