// halvod's USB/IP server as remote hosts meet it: a scripted importer,
// halvoctl watching and ending shares (Debian's `usbip` client and the
// kernel's side are the VM suite's, tests/vm).  Each test process takes
// the fixed ports for itself first (a private network namespace, or else a
// lock).
#include "tests/support/daemon_harness.h"
#include "tests/support/private_network.h"
#include "tests/support/process_runner.h"

#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <regex>
#include <signal.h>
#include <thread>
#include <vector>

namespace halvo::daemon {
namespace {

using testkit::DaemonProcess;
using testkit::eventually;
using testkit::runHalvoctl;
using testkit::TempDir;
using testkit::TestClient;
using testkit::writeFile;

const std::string kDemo = HALVOD_DEMO_DIR;
constexpr std::uint16_t kSharePort = 3240;

// Sends OP_REQ_IMPORT for `busId` and returns the reply's status; the
// connection stays open, as the kernel would keep it.
std::optional<std::uint32_t> import(TestClient& host, std::string_view busId) {
    std::string request("\x01\x11\x80\x03\0\0\0\0", 8);
    request += busId;
    request.resize(8 + 32, '\0');
    host.sendRaw(request);
    auto header = host.receiveBytes(8);
    if (!header) {
        return std::nullopt;
    }
    std::uint32_t status = 0;
    for (std::size_t index = 4; index < 8; ++index) {
        status = status << 8 | static_cast<std::uint8_t>((*header)[index]);
    }
    if (status == 0) {
        auto record = host.receiveBytes(312);
        EXPECT_TRUE(record && record->substr(256, busId.size() + 1) == std::string(busId) + '\0');
    }
    return status;
}

class UsbipSharing : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        static const bool isolated = testkit::isolateDaemonPort();
        (void)isolated;
    }

    void startOnDemo(const std::string& rules) {
        const std::string rulesPath = scratch.write("halvod.rules", rules);
        daemon = DaemonProcess::start({"--listen", "127.0.0.1:32999", "--devices",
                                       kDemo + "/devices.json", "--rules", rulesPath,
                                       "--share-listen", "127.0.0.1:3240"});
        ASSERT_TRUE(daemon) << "halvod did not start";
    }

    TempDir scratch;
    std::unique_ptr<DaemonProcess> daemon;
};

// Which hosts may import what, and how each end of a share is told, are
// the share table's and the request handler's tests; every way a share ends
// on the real kernel is the VM suite's. Here the share's events reach
// halvoctl monitor, and halvoctl ends the share.
TEST_F(UsbipSharing, HalvoctlSeesAnImportAndEndsItByDrop) {
    startOnDemo("share port \"1-1\"\n");
    auto monitor = std::async(std::launch::async, [] { return runHalvoctl({"monitor"}); });
    ASSERT_TRUE(eventually([] { return testkit::connectionEstablished(32999); }));

    TestClient host(kSharePort);
    ASSERT_EQ(import(host, "1-1"), 0u);
    const std::string connections = runHalvoctl({"conn", "list"}).out;
    std::smatch peer;
    ASSERT_TRUE(
        std::regex_search(connections, peer, std::regex("\nnet\t127\\.0\\.0\\.1\t([0-9]+)\n")))
        << connections;
    EXPECT_EQ(runHalvoctl({"conn", "drop", "-p", peer[1], "127.0.0.1"}).status, 0);
    EXPECT_TRUE(host.closedByPeer());

    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait(), 0);
    const testkit::RunResult watched = monitor.get();
    EXPECT_EQ(watched.status, 5);
    EXPECT_EQ(watched.err, "\nconnection stopped by peer\n");
    const std::string peerName = "host 127.0.0.1:" + peer[1].str();
    EXPECT_EQ(testkit::withoutTimestamps(watched.out),
              peerName + " is connected\ndevice id:1 \"USB Receiver\" got shared@127.0.0.1\n" +
                  peerName + " is dropped\ndevice id:1 \"USB Receiver\" got available\n");
}

TEST_F(UsbipSharing, AMalformedRequestDropsOnlyItsHost) {
    startOnDemo("share host \"127.0.0.1\" port \"1-1\"\n");
    const std::string list("\x01\x11\x80\x05\0\0\0\0", 8);
    TestClient dribbling(kSharePort);
    ASSERT_TRUE(dribbling.sendRaw(list.substr(0, 1)));
    // Which requests are malformed is the parser's test; here the server
    // drops the host that sent one.
    TestClient malformed(kSharePort);
    malformed.sendRaw(std::string("\x01\x00\x80\x05\0\0\0\0", 8));
    EXPECT_TRUE(malformed.closedByPeer());
    TestClient leaving(kSharePort);
    leaving.sendRaw(list.substr(0, 5));
    leaving.close();
    for (char byte : list.substr(1)) {
        ASSERT_TRUE(dribbling.sendRaw(std::string(1, byte)));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // The header, one device (1-1), its record and its one interface.
    auto reply = dribbling.receiveBytes(8 + 4 + 312 + 4);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->substr(0, 12), std::string("\x01\x11\0\x05\0\0\0\0\0\0\0\x01", 12));
    EXPECT_EQ(reply->substr(12 + 256, 4), std::string("1-1\0", 4));
}

// Each host is a loopback address of its own (127.0.0.2, 127.0.0.3, ...),
// with halvod's default limits unless a test says otherwise.
class UsbipHostLimits : public UsbipSharing {
  protected:
    void SetUp() override {
#if !defined(__linux__)
        GTEST_SKIP() << "needs the whole of 127.0.0.0/8 on the loopback interface, as Linux has";
#endif
    }

    static inline const std::string kListRequest{"\x01\x11\x80\x05\0\0\0\0", 8};

    // Whether `host` gets a device list (the reply's header: OP_REP_DEVLIST, status 0).
    static bool listed(TestClient& host) {
        return host.sendRaw(kListRequest) &&
               host.receiveBytes(8) == std::string("\x01\x11\0\x05\0\0\0\0", 8);
    }
};

TEST_F(UsbipHostLimits, OneHostsConnectionsKeepNoOtherHostOutAndRefusalsAreCounted) {
    daemon = DaemonProcess::start({"--devices", kDemo + "/devices.json", "--default", "share",
                                   "--share-listen", "127.0.0.1:3240"});
    ASSERT_TRUE(daemon);
    // 8 silent connections are one host's share; its next ones are turned
    // away, and another host is served meanwhile.
    std::vector<std::unique_ptr<TestClient>> silent;
    for (int place = 0; place < 8; ++place) {
        silent.push_back(std::make_unique<TestClient>(kSharePort, "127.0.0.2"));
    }
    for (int refused = 0; refused < 4; ++refused) {
        TestClient more(kSharePort, "127.0.0.2");
        ASSERT_TRUE(more.closedByPeer());
    }
    TestClient other(kSharePort, "127.0.0.3");
    EXPECT_TRUE(listed(other));
    EXPECT_TRUE(other.closedByPeer()) << "its place is free again";

    // 64 hosts: with 63 more holding a place, a new host is turned away, one
    // already there is not.
    for (int host = 1; host <= 63; ++host) {
        const std::string address = "127.0.1." + std::to_string(host);
        silent.push_back(std::make_unique<TestClient>(kSharePort, address.c_str()));
    }
    for (const char* stranger : {"127.0.0.4", "127.0.0.5", "127.0.0.6", "127.0.0.7"}) {
        TestClient turnedAway(kSharePort, stranger);
        ASSERT_TRUE(turnedAway.closedByPeer()) << stranger;
    }
    TestClient present(kSharePort, "127.0.1.1");
    EXPECT_TRUE(listed(present));

    // 8 refusals: 5 lines, then a count (written at the latest on stopping).
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait(), 0);
    const std::string log = daemon->errorOutput();
    const std::regex refusal("USB/IP connection refused: ([^\n]*) HALVO_PEER=(127[.0-9]+):");
    std::vector<std::string> refusals;
    for (auto line = std::sregex_iterator(log.begin(), log.end(), refusal);
         line != std::sregex_iterator(); ++line) {
        refusals.push_back((*line)[1].str() + " " + (*line)[2].str());
    }
    EXPECT_EQ(refusals, (std::vector<std::string>{
                            "too many connections of this host (8) 127.0.0.2",
                            "too many connections of this host (8) 127.0.0.2",
                            "too many connections of this host (8) 127.0.0.2",
                            "too many connections of this host (8) 127.0.0.2",
                            "too many hosts (64) 127.0.0.4",
                        }))
        << log;
    EXPECT_NE(log.find("halvod: 3 more USB/IP connections refused in the last 10 s\n"),
              std::string::npos)
        << log;
}

TEST_F(UsbipHostLimits, AHostThatDoesNotTakeItsReplyLosesItsPlace) {
    // 20,000 devices: a device list of 6 MiB, more than socket buffers hold.
    std::string devices = R"({"devices": [)";
    for (int device = 1; device <= 20000; ++device) {
        devices += (device == 1 ? "" : ",") +
                   std::string(R"({"vid": 1, "pid": 2, "rev": 3, "name": "d", "port": "1-)") +
                   std::to_string(device) + "\"}";
    }
    writeFile(scratch / "devices.json", devices + "]}");
    daemon = DaemonProcess::start({"--devices", (scratch / "devices.json").string(), "--default",
                                   "share", "--share-listen", "127.0.0.1:3240",
                                   "--share-max-per-host", "1", "--share-timeout-ms", "1000"});
    ASSERT_TRUE(daemon);
    TestClient stalled(kSharePort, "127.0.0.2");
    ASSERT_TRUE(stalled.sendRaw(kListRequest));
    ASSERT_TRUE(eventually([&] {
        return daemon->errorOutput().find("USB/IP host dropped: reply not taken in time") !=
               std::string::npos;
    })) << daemon->errorOutput();
    TestClient again(kSharePort, "127.0.0.2");
    EXPECT_TRUE(listed(again));
}

} // namespace
} // namespace halvo::daemon
