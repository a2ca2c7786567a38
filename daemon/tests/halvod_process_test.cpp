// halvod as a program: start-up, its rules file and the uevents it is handed.
#include "daemon/core/rule_text.h"
#include "tests/support/daemon_harness.h"
#include "tests/support/uevents.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::daemon {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;
using link::CommandCode;
using testkit::DaemonProcess;
using testkit::runHalvod;
using testkit::TempDir;
using testkit::TestClient;

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

// The uevents reach the daemon on a socket handed to it; that every client
// hears the events is the server's test.
TEST(HalvodProcessTest, UeventsBringHotplugAndUnplug) {
    TempDir bus;
    testkit::addSysfsEntry(bus / "1-1", "idVendor=046d;idProduct=c31c;product=Keyboard");
    int kernel[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, kernel), 0);
    // A period that never ends within the test: only the uevents can bring
    // the changes.
    auto daemon =
        DaemonProcess::start({"--sysfs", bus.path().string(), "--rescan-ms", "3600000"},
                             {.environment = {}, .wrapper = {}, .ueventSocket = kernel[1]});
    ::close(kernel[1]);
    ASSERT_TRUE(daemon);
    TestClient watcher(daemon->port());
    ASSERT_TRUE(watcher.request(CommandCode::deviceList));

    // The new device is made aside and moved in, as the kernel shows a
    // device whole before it reports it.
    std::filesystem::remove_all(bus / "1-1");
    TempDir staging;
    testkit::addSysfsEntry(staging / "1-2", "idVendor=0781;idProduct=5567;product=Stick");
    std::filesystem::rename(staging / "1-2", bus / "1-2");
    for (const std::string& report :
         {testkit::usbUevent("remove", "1-1"), testkit::usbUevent("add", "1-2")}) {
        ASSERT_EQ(::send(kernel[0], report.data(), report.size(), 0),
                  static_cast<ssize_t>(report.size()));
    }
    auto gone = watcher.receive(1s);
    auto added = watcher.receive(1s);
    ASSERT_TRUE(gone && added);
    EXPECT_EQ(gone->payload, json::parse(R"({"id": 1, "name": "Keyboard", "state": "unplugged"})"));
    EXPECT_EQ(added->payload, json::parse(R"({"id": 2, "name": "Stick", "state": "plugged"})"));
    ::close(kernel[0]);
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
