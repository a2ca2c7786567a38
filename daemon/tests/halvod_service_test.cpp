// halvod as a system service: what it tells the service manager, what it
// logs, reloads and the unit files (socket activation is the VM suite's).
#include "daemon/core/rule_text.h"
#include "tests/support/daemon_harness.h"
#include "tests/support/process_runner.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>
#include <poll.h>
#include <regex>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace halvo::daemon {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using link::CommandCode;
using testkit::DaemonProcess;
using testkit::TempDir;
using testkit::TestClient;

const std::string kDemo = HALVOD_DEMO_DIR;

// The datagram socket that systemd names in NOTIFY_SOCKET.
class NotifyListener {
  public:
    explicit NotifyListener(const fs::path& path) : path_(path.string()) {
        fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        ::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    ~NotifyListener() { ::close(fd_); }
    NotifyListener(const NotifyListener&) = delete;
    NotifyListener& operator=(const NotifyListener&) = delete;

    std::string environment() const { return "NOTIFY_SOCKET=" + path_; }

    // The next message, or "" when none came within five seconds.
    std::string next() {
        pollfd wanted{fd_, POLLIN, 0};
        if (::poll(&wanted, 1, 5000) != 1) {
            return "";
        }
        char buffer[4096];
        ssize_t size = ::recv(fd_, buffer, sizeof buffer, 0);
        return size > 0 ? std::string(buffer, static_cast<std::size_t>(size)) : "";
    }

  private:
    std::string path_;
    int fd_ = -1;
};

// The message with MONOTONIC_USEC's value, which differs every run, left out.
std::string withoutTime(const std::string& message) {
    return std::regex_replace(message, std::regex("MONOTONIC_USEC=[0-9]+"), "MONOTONIC_USEC=");
}

TEST(HalvodServiceTest, ReloadTakesAGoodRulesFileKeepsTheRulesForABadOneAndTellsSystemd) {
    TempDir scratch;
    NotifyListener manager(scratch / "notify");
    const std::string rules = scratch.write("halvod.rules", "block\n");
    auto daemon = DaemonProcess::start({"--devices", kDemo + "/devices.json", "--rules", rules},
                                       {manager.environment()});
    ASSERT_TRUE(daemon);
    const std::string address = "127.0.0.1:" + std::to_string(daemon->port());
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=listening on " + address + "; 1 rules");

    testkit::writeFile(rules, "share class 08\nblock\n");
    daemon->signal(SIGHUP);
    EXPECT_EQ(withoutTime(manager.next()), "RELOADING=1\nMONOTONIC_USEC=\nSTATUS=reloading");
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=reloaded: 2 rules");
    EXPECT_EQ(testkit::committedRules(daemon->port()), *parseRuleText("share class 08\nblock\n"));

    testkit::writeFile(rules, "share\nshare rdesk host x\n");
    daemon->signal(SIGHUP);
    const std::string refusal = rules +
                                ":2:13: rule #2: \"host\" after \"rdesk\": a rule names either "
                                "hosts or remote desktop; the old settings and rules stay";
    EXPECT_EQ(withoutTime(manager.next()), "RELOADING=1\nMONOTONIC_USEC=\nSTATUS=reloading");
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=running; the last reload was refused: " + refusal);
    EXPECT_EQ(testkit::committedRules(daemon->port()), *parseRuleText("share class 08\nblock\n"));

    daemon->signal(SIGTERM);
    EXPECT_EQ(manager.next(), "STOPPING=1\nSTATUS=stopping");
    EXPECT_EQ(daemon->wait(), 0);
    EXPECT_EQ(daemon->errorOutput(), "halvod: starting, version " HALVO_VERSION
                                     " HALVO_CONFIG=/dev/null\n"
                                     "halvod: listening on " +
                                         address +
                                         "\n"
                                         "halvod: reloaded: 2 rules HALVO_CONFIG=/dev/null\n"
                                         "halvod: reload refused: " +
                                         refusal +
                                         "\n"
                                         "halvod: stopping on SIGTERM\n"
                                         "halvod: stopped\n");
}

TEST(HalvodServiceTest, EveryChangeAndFailureIsLoggedWithWhoDidIt) {
    TempDir scratch;
    const std::string rules = (scratch / "halvod.rules").string();
    auto daemon = DaemonProcess::start({"--devices", kDemo + "/devices.json", "--connections",
                                        kDemo + "/connections.json", "--rules", rules});
    ASSERT_TRUE(daemon);
    TestClient client(daemon->port());
    const auto request = [&](CommandCode command, const char* payload) {
        return client.request(command, json::parse(payload).as_object());
    };
    client.request(CommandCode::startRuleTransaction);
    request(CommandCode::loadRuleList, R"({"rules": [{"action": "block"}]})");
    request(CommandCode::endRuleTransaction, R"({"action": "commit"})");
    request(CommandCode::killConnection, R"({"type": "net", "host": "10.0.0.5", "port": 50321})");
    request(CommandCode::disconnectDevice, R"({"id": 2})");
    // A folder where the rules file was: the next save cannot replace it.
    fs::remove(rules);
    fs::create_directory(rules);
    client.request(CommandCode::startRuleTransaction);
    EXPECT_EQ((*request(CommandCode::endRuleTransaction, R"({"action": "commit"})"))["status"],
              json::value("cannot save the rules: " + rules + ": rename: Is a directory"));
    daemon->signal(SIGINT);
    EXPECT_EQ(daemon->wait(), 0);

    const std::string uid = " HALVO_UID=" + std::to_string(::geteuid());
    const std::string log = daemon->errorOutput();
    EXPECT_EQ(log.substr(log.find('\n', log.find("listening on")) + 1),
              "halvod: rules committed: 1 rules" + uid + "\n" +
                  "halvod: connection dropped "
                  "HALVO_REQUEST={\"type\":\"net\",\"host\":\"10.0.0.5\",\"port\":50321}" +
                  uid + "\nhalvod: device unplugged HALVO_DEVICE=1-2" + uid +
                  "\nhalvod: commit failed: " + rules + ": rename: Is a directory" + uid +
                  "\nhalvod: stopping on SIGINT\nhalvod: stopped\n");
}

TEST(HalvodServiceTest, UnitFilesPassSystemdAnalyzeVerify) {
    const std::string analyze = "/usr/bin/systemd-analyze";
    if (!fs::exists(analyze)) {
        GTEST_SKIP() << "systemd-analyze is not installed";
    }
    TempDir scratch;
    // The installed path is not there yet: the built daemon stands in.
    std::string service = testkit::readFile(fs::path(HALVOD_UNITS_DIR) / "halvod.service");
    const std::string kInstalled = "ExecStart=/usr/sbin/halvod";
    ASSERT_NE(service.find(kInstalled), std::string::npos);
    service.replace(service.find(kInstalled), kInstalled.size(), "ExecStart=" HALVOD_PATH);
    std::vector<std::string> arguments{"verify", "--man=no",
                                       scratch.write("halvod.service", service)};
    for (const char* socket : {"halvod.socket", "halvod-usbip.socket", "halvod-usbip-tls.socket"}) {
        arguments.push_back(
            scratch.write(socket, testkit::readFile(fs::path(HALVOD_UNITS_DIR) / socket)));
    }
    testkit::RunResult verified = testkit::runProgram(analyze, arguments);
    EXPECT_EQ(verified.status, 0);
    EXPECT_EQ(verified.err, "");
}

} // namespace
} // namespace halvo::daemon
