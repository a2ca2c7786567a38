// The real halvoctl against the real halvod on 127.0.0.1:32999, every
// command.  Each test process takes the port for itself first (a private
// network namespace, or else a lock shared by all test processes).
#include "tests/support/daemon_harness.h"
#include "tests/support/private_network.h"
#include "tests/support/process_runner.h"
#include "tests/support/uevents.h"

#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <signal.h>
#include <thread>
#include <unistd.h>

namespace halvo::daemon {
namespace {

using testkit::connectionEstablished;
using testkit::DaemonProcess;
using testkit::readFile;
using testkit::runHalvoctl;
using testkit::TempDir;

const std::string kDemo = HALVOD_DEMO_DIR;

const char* const kDeviceTable =
    "ID\tVID: PID: REV\tPort\tDevice name and status\n"
    "1\t046d:c31c:0110\t1-1\tUSB Receiver /available/\n"
    "2\t0781:5567:0100\t1-2\tUltra Fit /shared@10.0.0.5, 4C530001230818117373/\n"
    "3\t04f2:b6d9:5626\t1-3.2\tIntegrated Camera /built-in, available/\n"
    "4\t0403:6001:0600\t1-3.4\tFT232R USB UART /blocked, A50285BI/\n"
    "5\t1050:0407:0543\t2-1\tYubiKey OTP+FIDO+CCID /shared@lab-mac.local/\n";

const char* const kConnectionTable = "Type\tIP/Name\t\tPort/PID\n"
                                     "net\t10.0.0.5\t50321\n"
                                     "net\tlab-mac.local\t50400\n"
                                     "net\t10.0.0.5\t50322\n"
                                     "rdesk\tScreen Sharing\t4242\n";

const char* const kExampleRuleList = "1: share host \"10.0.0.5\" class 08\n"
                                     "2: block !host \"10.0.0.5\" class 08\n"
                                     "3: share rdesk class 03\n"
                                     "4: block quick built-in\n"
                                     "5: share hwid 0403:6001 serial \"A50285BI\"\n"
                                     "6: block !rdesk name contains \"YubiKey\"\n";

class HalvoctlAgainstHalvod : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        static const bool isolated = testkit::isolateDaemonPort();
        privateNetwork = isolated;
    }

    // Whether the test process has a network namespace of its own.
    static inline bool privateNetwork = false;

    void SetUp() override {
        rulesPath = (scratch / "halvod.rules").string();
        daemon = DaemonProcess::start({"--listen", "127.0.0.1:32999", "--devices",
                                       kDemo + "/devices.json", "--connections",
                                       kDemo + "/connections.json", "--rules", rulesPath});
        ASSERT_TRUE(daemon) << "halvod did not start on 127.0.0.1:32999";
    }

    // Runs halvoctl and compares everything it did with what is expected.
    void expectRun(const std::vector<std::string>& args, const std::string& out,
                   const std::string& err, int status) {
        EXPECT_TRUE(finished(runHalvoctl(args), status, out, err))
            << "halvoctl " << ::testing::PrintToString(args);
    }

    void loadExampleRules() { expectRun({"rule", "load", kDemo + "/example.rules"}, "", "", 0); }

    TempDir scratch;
    std::string rulesPath;
    std::unique_ptr<DaemonProcess> daemon;
};

// What the daemon says back is the handler's test; here each of halvoctl's
// requests is one the daemon takes, and each answer one halvoctl reads.
TEST_F(HalvoctlAgainstHalvod, ListsUnplugsDropsAndKills) {
    expectRun({"dev", "list"}, kDeviceTable, "", 0);
    expectRun({"conn", "list"}, kConnectionTable, "", 0);
    expectRun({"dev", "unplug", "2"}, "", "", 0);
    expectRun({"conn", "drop", "-p", "50322", "10.0.0.5"}, "", "", 0);
    expectRun({"conn", "kill", "4242"}, "", "", 0);
    expectRun({"conn", "kill", "4242"}, "", "Connection has not been found.\n", 2);
    expectRun({"conn", "drop", "lab-mac.local"}, "", "", 0);
    expectRun({"conn", "list"}, "Type\tIP/Name\t\tPort/PID\nnet\t10.0.0.5\t50321\n", "", 0);
    EXPECT_NE(
        runHalvoctl({"dev", "list"})
            .out.find("2\t0781:5567:0100\t1-2\tUltra Fit /available, 4C530001230818117373/\n"),
        std::string::npos);
}

TEST_F(HalvoctlAgainstHalvod, SharesAndBlocksOneExactDeviceAndKeepsTheRule) {
    expectRun({"dev", "share", "4"}, "", "", 0);
    expectRun({"dev", "block", "2"}, "", "", 0);
    const std::string rules =
        "block quick hwid 0781:5567:0100 serial \"4C530001230818117373\" port 1-2\n"
        "share quick hwid 0403:6001:0600 serial \"A50285BI\" port 1-3.4\n";
    expectRun({"rule", "list", "-N"}, rules, "", 0);
    EXPECT_EQ(readFile(rulesPath), rules);
}

TEST_F(HalvoctlAgainstHalvod, LoadsListsAndTestsRules) {
    expectRun({"rule", "list"}, "", "", 0);
    loadExampleRules();
    expectRun({"rule", "list"}, kExampleRuleList, "", 0);

    // Verdicts are the rule engine's test: one of each kind of peer here.
    expectRun({"rule", "test", "-h", "10.0.0.9", "2"}, "block (rule #2)\n", "", 0);
    expectRun({"rule", "test", "-r", "3"}, "block (rule #4)\n", "", 0);
    expectRun({"rule", "test", "-r", "99"}, "", "Device has not been found.\n", 2);
    // A file is tried without being applied.
    const std::string file =
        scratch.write("trial.rules", "share quick name contains \"Ultra\"\nblock\n");
    expectRun({"rule", "test", "-f", file, "-h", "10.0.0.9", "2"}, "share (rule #1)\n", "", 0);
    expectRun({"rule", "list"}, kExampleRuleList, "", 0);
}

// The whole way of a plug: the kernel's uevent, halvod's netlink socket and
// its check of the sender, the rescan, the event, the monitor's line.
TEST_F(HalvoctlAgainstHalvod, PlugReportedByTheKernelReachesTheMonitor) {
    // Elsewhere the uevents would reach the whole machine.
    if (!privateNetwork) {
        GTEST_SKIP() << "needs a network namespace of its own";
    }
    const int kernel = testkit::openUeventSender();
    daemon->signal(SIGTERM);
    daemon->wait();
    TempDir bus;
    daemon = DaemonProcess::start(
        {"--listen", "127.0.0.1:32999", "--sysfs", bus.path().string(), "--rescan-ms", "3600000"});
    ASSERT_TRUE(daemon);
    auto monitor = std::async(std::launch::async, [] { return runHalvoctl({"monitor"}); });
    ASSERT_TRUE(testkit::eventually([] { return connectionEstablished(32999); }));
    // A process posing as the kernel is not heard: had halvod rescanned,
    // the monitor would show a device come and go.
    testkit::addSysfsEntry(bus / "1-3", "idVendor=046d;idProduct=c31c");
    EXPECT_EQ(testkit::sendAsProcess(kernel, testkit::usbUevent("add", "1-3")), std::nullopt);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::filesystem::remove_all(bus / "1-3");

    testkit::addSysfsEntry(bus / "1-4", "idVendor=1050;idProduct=0407;product=YubiKey");
    EXPECT_EQ(testkit::sendThroughKernel(kernel, testkit::usbUevent("add", "1-4")), std::nullopt);
    ::close(kernel);
    // A generous bound: the figure itself is hotplug_bench's.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait(), 0);
    EXPECT_EQ(testkit::withoutTimestamps(monitor.get().out),
              "device id:1 \"YubiKey\" got plugged\n");
}

} // namespace
} // namespace halvo::daemon
