// halvod as a program: start-up, the rules file across restarts and kills.
#include "daemon/core/rule_text.h"
#include "tests/support/daemon_harness.h"
#include "tests/support/uevents.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace halvo::daemon {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;
using link::CommandCode;
using testkit::DaemonProcess;
using testkit::readFile;
using testkit::runHalvod;
using testkit::TempDir;
using testkit::TestClient;
using testkit::writeFile;

const std::string kDevices = std::string(HALVOD_DEMO_DIR) + "/devices.json";

json::object rulesPayload(const json::array& rules) {
    json::object payload;
    payload["rules"] = rules;
    return payload;
}

json::object action(std::string_view name) {
    json::object payload;
    payload["action"] = name;
    return payload;
}

json::array committedRules(const DaemonProcess& daemon) {
    TestClient client(daemon.port());
    auto reply = client.request(CommandCode::ruleList);
    return reply ? (*reply)["rules"].as_array() : json::array();
}

// Many rules, so that a save takes long enough to be interrupted.
json::array numberedRules(int count, int salt) {
    json::array rules;
    for (int index = 0; index < count; ++index) {
        json::object rule;
        rule["action"] = index % 2 == 0 ? "share" : "block";
        rule["name"] = "device " + std::to_string(salt) + "/" + std::to_string(index);
        rule["nameMatch"] = "contains";
        rule["vid"] = index & 0xffff;
        rules.push_back(std::move(rule));
    }
    return rules;
}

// Starts a commit of `rules` and kills the daemon `delay` after sending it.
void killDuringCommit(DaemonProcess& daemon, const json::array& rules,
                      std::chrono::microseconds delay) {
    TestClient client(daemon.port());
    client.request(CommandCode::startRuleTransaction);
    client.request(CommandCode::loadRuleList, rulesPayload(rules));
    client.send(CommandCode::endRuleTransaction, action("commit"));
    std::this_thread::sleep_for(delay);
    daemon.signal(SIGKILL);
    daemon.wait();
}

TEST(HalvodProcessTest, KillDuringCommitLeavesTheOldOrTheNewRules) {
    TempDir scratch;
    const std::string rulesPath = (scratch / "halvod.rules").string();
    const std::vector<std::string> arguments{"--devices", kDevices, "--rules", rulesPath};
    json::array previous = numberedRules(3000, 0);

    // A whole commit, timed, so that the kills below fall before, during and
    // after the save.
    auto started = std::chrono::steady_clock::now();
    {
        auto daemon = DaemonProcess::start(arguments);
        ASSERT_TRUE(daemon);
        TestClient client(daemon->port());
        client.request(CommandCode::startRuleTransaction);
        client.request(CommandCode::loadRuleList, rulesPayload(previous));
        started = std::chrono::steady_clock::now();
        ASSERT_EQ((*client.request(CommandCode::endRuleTransaction, action("commit")))["status"],
                  "ok");
    }
    const auto commitTime = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - started);

    constexpr int kRounds = 12;
    for (int round = 1; round <= kRounds; ++round) {
        auto daemon = DaemonProcess::start(arguments);
        ASSERT_TRUE(daemon) << "round " << round;
        ASSERT_EQ(committedRules(*daemon), previous) << "round " << round;
        const json::array next = numberedRules(3000, round);
        killDuringCommit(*daemon, next, commitTime * round / (kRounds - 2));

        auto kept = parseRuleText(readFile(rulesPath));
        ASSERT_TRUE(kept) << "round " << round << ": the rules file does not parse";
        if (*kept == next) {
            previous = next;
        } else {
            ASSERT_EQ(*kept, previous) << "round " << round;
        }
    }
    // Temporary files of interrupted saves are cleared at the next start.
    auto daemon = DaemonProcess::start(arguments);
    ASSERT_TRUE(daemon);
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(scratch.path())) {
        ++files;
    }
    EXPECT_EQ(files, 1u);
}

TEST(HalvodProcessTest, UeventsBringHotplugAndUnplugToEveryClient) {
    TempDir bus;
    testkit::addSysfsEntry(bus / "1-1", {{"idVendor", "046d"},
                                         {"idProduct", "c31c"},
                                         {"product", "Keyboard"},
                                         {"authorized", "1"}});
    int kernel[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, kernel), 0);
    // A period that never ends within the test: only the uevents can bring
    // the changes.
    auto daemon =
        DaemonProcess::start({"--sysfs", bus.path().string(), "--rescan-ms", "3600000"},
                             {.environment = {}, .wrapper = {}, .ueventSocket = kernel[1]});
    ::close(kernel[1]);
    ASSERT_TRUE(daemon);
    TestClient actor(daemon->port());
    TestClient watcher(daemon->port());
    ASSERT_TRUE(watcher.request(CommandCode::deviceList));

    // The new device is made aside and moved in, as the kernel shows a
    // device whole before it reports it.
    std::filesystem::remove_all(bus / "1-1");
    TempDir staging;
    testkit::addSysfsEntry(staging / "1-2",
                           {{"idVendor", "0781"}, {"idProduct", "5567"}, {"product", "Stick"}});
    std::filesystem::rename(staging / "1-2", bus / "1-2");
    for (const std::string& report :
         {testkit::usbUevent("remove", "1-1"), testkit::usbUevent("add", "1-2")}) {
        ASSERT_EQ(::send(kernel[0], report.data(), report.size(), 0),
                  static_cast<ssize_t>(report.size()));
    }
    for (TestClient* client : {&actor, &watcher}) {
        auto gone = client->receive(1s);
        auto added = client->receive(1s);
        ASSERT_TRUE(gone && added);
        EXPECT_EQ(gone->payload,
                  json::parse(R"({"id": 1, "name": "Keyboard", "state": "unplugged"})"));
        EXPECT_EQ(added->payload, json::parse(R"({"id": 2, "name": "Stick", "state": "plugged"})"));
    }
    ::close(kernel[0]);

    testkit::writeFile(bus / "1-2" / "authorized", "1\n");
    auto reply =
        actor.request(CommandCode::disconnectDevice, json::parse(R"({"id": 2})").as_object());
    ASSERT_TRUE(reply);
    EXPECT_EQ((*reply)["status"], "ok");
    EXPECT_EQ(readFile(bus / "1-2" / "authorized"), "1\n");
    auto event = watcher.receive();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->payload, json::parse(R"({"id": 2, "name": "Stick", "state": "unplugged"})"));
}

TEST(HalvodProcessTest, RulesFileThatDoesNotParseStopsTheStartUntouched) {
    TempDir scratch;
    const std::string rulesPath = (scratch / "halvod.rules").string();
    const std::string text =
        "# two good rules, then a bad one\nshare\nblock rdesk\nshare rdesk host x\n";
    writeFile(rulesPath, text);
    auto result =
        runHalvod({"--listen", "127.0.0.1:0", "--devices", kDevices, "--rules", rulesPath});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("\nhalvod: " + rulesPath +
                              ":4:13: rule #3: \"host\" after \"rdesk\": a rule names either "
                              "hosts or remote desktop\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(readFile(rulesPath), text);
}

TEST(HalvodProcessTest, StartFailuresSayWhy) {
    TempDir scratch;
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
         "halvod: " + (scratch / "none").string() + ": the rules file's folder does not exist"},
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
