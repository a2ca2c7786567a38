// halvod under clients that take more than their share: each bound refuses or
// drops the one client, logs why, and leaves the others served.
#include "tests/support/daemon_harness.h"
#include "tests/support/private_network.h"

#include <arpa/inet.h>
#include <boost/json/parse.hpp>
#include <filesystem>
#include <grp.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <regex>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace halvo::daemon {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;
using link::CommandCode;
using testkit::DaemonProcess;
using testkit::TempDir;
using testkit::TestClient;

const std::string kDevices = std::string(HALVOD_DEMO_DIR) + "/devices.json";

bool served(TestClient& client) {
    auto reply = client.request(CommandCode::deviceList);
    return reply && reply->contains("devices");
}

// Connections of another local user, held until the crowd goes: a child
// process takes the user's id, connects `count` times, asks for the device
// list on each when `ask`, and waits.
class Crowd {
  public:
    Crowd(uid_t uid, std::uint16_t port, int count, bool ask) {
        const std::string request = link::encodePacket(link::code(CommandCode::deviceList));
        int ready[2];
        EXPECT_EQ(::pipe(ready), 0);
        pid_ = ::fork();
        if (pid_ == 0) {
            if (::setgroups(0, nullptr) != 0 || ::setgid(uid) != 0 || ::setuid(uid) != 0) {
                ::_exit(1);
            }
            sockaddr_in daemon{};
            daemon.sin_family = AF_INET;
            daemon.sin_port = htons(port);
            daemon.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            for (int i = 0; i < count; ++i) {
                const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
                if (::connect(fd, reinterpret_cast<sockaddr*>(&daemon), sizeof daemon) == 0 &&
                    ask) {
                    (void)!::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
                }
            }
            (void)!::write(ready[1], "+", 1);
            ::pause();
            ::_exit(0);
        }
        ::close(ready[1]);
        char done = 0;
        EXPECT_EQ(::read(ready[0], &done, 1), 1) << "the crowd of " << uid << " did not connect";
        ::close(ready[0]);
    }
    ~Crowd() {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }

  private:
    pid_t pid_;
};

// As root, in a network namespace of its own (halvoctl takes the fixed port).
class ConnectionLimitsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to connect as other users";
        }
        static const bool isolated = testkit::isolateDaemonPort(true);
        (void)isolated;
    }
};

TEST_F(ConnectionLimitsTest, TurnedAwayClientsAreClosedUnanswered) {
    auto daemon = DaemonProcess::start(
        {"--listen", "127.0.0.1:32999", "--devices", kDevices, "--max-clients-per-user", "1"});
    ASSERT_TRUE(daemon);
    TestClient holder(daemon->port());
    ASSERT_TRUE(served(holder));
    // halvoctl reports the closed link as it reports any broken link.
    testkit::RunOptions bounded;
    bounded.timeout = 5s; // a monitor that is not closed waits for ever
    for (const char* command : {"dev", "monitor"}) {
        const testkit::RunResult run = testkit::runHalvoctl({command}, bounded);
        EXPECT_EQ(run.status, 5) << command;
        EXPECT_EQ(run.out, "") << command;
    }
    EXPECT_NE(daemon->errorOutput().find(
                  "client refused: busy: too many clients of this user (1) HALVO_UID=0"),
              std::string::npos)
        << daemon->errorOutput();
}

TEST(ClientLimitsTest, ASilentClientMakesRoomOnceItsFirstRequestIsLate) {
    auto daemon = DaemonProcess::start(
        {"--devices", kDevices, "--max-clients-per-user", "1", "--first-request-seconds", "1"});
    ASSERT_TRUE(daemon);
    TestClient listener(daemon->port()); // asks nothing, as halvoctl monitor
    std::this_thread::sleep_for(1100ms);
    TestClient newcomer(daemon->port());
    EXPECT_TRUE(served(newcomer));
    EXPECT_TRUE(listener.closedByPeer());
    EXPECT_NE(daemon->errorOutput().find("client dropped to make room: silent since it connected"),
              std::string::npos)
        << daemon->errorOutput();
}

TEST_F(ConnectionLimitsTest, CrowdsOfOtherUsersNeverKeepRootOut) {
    // Four users fill the table (not the reserve), silent or asking; each
    // tries more than its share.
    for (const bool ask : {false, true}) {
        auto daemon = DaemonProcess::start(
            {"--devices", kDevices, "--max-clients", "40", "--max-clients-per-user", "10"});
        ASSERT_TRUE(daemon);
        std::vector<std::unique_ptr<Crowd>> crowds;
        for (uid_t user = 60001; user <= 60004; ++user) {
            crowds.push_back(std::make_unique<Crowd>(user, daemon->port(), 12, ask));
        }
        TestClient root(daemon->port());
        EXPECT_TRUE(served(root)) << (ask ? "asking\n" : "silent\n") << daemon->errorOutput();
    }
}

TEST_F(ConnectionLimitsTest, OutOfDescriptorsRootIsServedWithoutABusyLoop) {
    auto daemon = DaemonProcess::start({"--devices", kDevices, "--max-clients-per-user", "1000"});
    ASSERT_TRUE(daemon);
    // Leave the daemon room for a few more descriptors only.
    const auto open = std::distance(
        std::filesystem::directory_iterator("/proc/" + std::to_string(daemon->pid()) + "/fd"),
        std::filesystem::directory_iterator());
    const rlimit few{static_cast<rlim_t>(open + 16), static_cast<rlim_t>(open + 16)};
    ASSERT_EQ(::prlimit(daemon->pid(), RLIMIT_NOFILE, &few, nullptr), 0);

    Crowd crowd(60001, daemon->port(), 200, false);
    TestClient root(daemon->port());
    EXPECT_TRUE(served(root));
    TestClient again(daemon->port());
    EXPECT_TRUE(served(again));
    // Each failed accept is counted: no more than one a connection, not one
    // a turn of a loop. The count comes when the log's 10 s window ends.
    const std::regex failures("([0-9]+) more accept failures in the last 10 s");
    std::smatch counted;
    std::string log;
    EXPECT_TRUE(testkit::eventually(
        [&] { return std::regex_search(log = daemon->errorOutput(), counted, failures); }, 15s))
        << log;
    EXPECT_LT(counted.empty() ? 0 : std::stoul(counted[1]), 200u) << log;
    // Two windows of lines at most, however long the flood.
    EXPECT_LT(std::count(log.begin(), log.end(), '\n'), 50) << log;
}

TEST(ClientLimitsTest, PayloadsAndUnreadOutputAreBounded) {
    TempDir scratch;
    // One device with a long name: each of its events takes 64 KiB.
    testkit::writeFile(scratch / "devices.json",
                       R"({"devices": [{"vid": 1, "pid": 2, "rev": 3, "port": "1-1", "name": ")" +
                           std::string(64 * 1024, 'n') + R"("}]})");
    auto daemon = DaemonProcess::start({"--devices", (scratch / "devices.json").string(),
                                        "--max-parse-mib", "1", "--max-unread-mib", "1"});
    ASSERT_TRUE(daemon);
    TestClient bystander(daemon->port());

    // 300 KiB of numbers parse into some MiB: refused, that client only.
    TestClient parser(daemon->port());
    std::string numbers = R"({"a": [1)";
    for (int i = 0; i < 150 * 1024; ++i) {
        numbers += ",1";
    }
    numbers += "]}";
    ASSERT_TRUE(parser.sendRaw(
        link::encodePacket(link::code(CommandCode::deviceList), std::string_view(numbers))));
    EXPECT_TRUE(parser.closedByPeer());
    EXPECT_TRUE(served(bystander));

    // A client that never reads while events pile up is dropped.
    TestClient sleeper(daemon->port());
    ASSERT_TRUE(served(sleeper));
    json::object unplug = json::parse(R"({"id": 1})").as_object();
    for (int i = 0; i < 200 && !sleeper.closedByPeer(std::chrono::milliseconds(0)); ++i) {
        ASSERT_TRUE(bystander.request(CommandCode::disconnectDevice, unplug));
        bystander.events.clear();
    }
    EXPECT_TRUE(sleeper.closedByPeer());
    EXPECT_TRUE(served(bystander));

    const std::string log = daemon->errorOutput();
    EXPECT_NE(log.find("client dropped: payload too large to parse"), std::string::npos) << log;
    EXPECT_NE(log.find("client dropped: too much unread output"), std::string::npos) << log;
}

} // namespace
} // namespace halvo::daemon
