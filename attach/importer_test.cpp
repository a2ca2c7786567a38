// halvo-attach against the real halvod on its fixture devices, in a private
// network namespace: the program lists, the importer takes a device into a
// fake vhci-hcd (which holds the socket as the kernel would), the commands
// show and detach it, and every refusal has its exit status.  The real
// vhci-hcd, and attach --persist, are the VM suite's (tests/vm).
#include "attach/commands.h"
#include "attach/importer.h"
#include "attach/linux_vhci.h"
#include "tests/support/daemon_harness.h"
#include "tests/support/fake_vhci.h"
#include "tests/support/private_network.h"

#include <gtest/gtest.h>
#include <sstream>

namespace halvo::attach {
namespace {

const std::string kDemo = HALVOD_DEMO_DIR;
const Endpoint kServer{"127.0.0.1", 3240};

class ImporterTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        static const bool isolated = testkit::isolateDaemonPort();
        (void)isolated;
    }

    void SetUp() override {
        // From 127.0.0.1 the example rules share the serial adapter (1-3.4) only.
        daemon = testkit::DaemonProcess::start(
            {"--listen", "127.0.0.1:32999", "--devices", kDemo + "/devices.json", "--rules",
             kDemo + "/example.rules", "--share-listen", "127.0.0.1:3240"});
        ASSERT_TRUE(daemon) << "halvod did not start";
    }

    // Runs the command line on the fake vhci; returns the status, output in
    // `out` and `err`.
    int run(const std::vector<std::string>& arguments) {
        out.str("");
        err.str("");
        Context context{vhci, records, plainConnector(std::chrono::seconds(5)), out, err, {}};
        return runCommandLine(arguments, context);
    }

    std::unique_ptr<testkit::DaemonProcess> daemon;
    testkit::TempDir scratch;
    testkit::FakeVhci vhci;
    Records records{scratch.path() / "records"};
    std::ostringstream out;
    std::ostringstream err;
};

TEST_F(ImporterTest, ListsWhatTheServerSharesWithThisHost) {
    const testkit::RunResult listed = testkit::runProgram(HALVO_ATTACH_PATH, {"list", "127.0.0.1"});
    ASSERT_EQ(listed.status, 0) << listed.err;
    EXPECT_EQ(listed.out, "BUSID        VID:PID    SPEED       CLASS     INTERFACES\n"
                          "1-3.4        0403:6001  high        00/00/00  ff/ff/ff\n");
}

TEST_F(ImporterTest, AttachesShowsAndDetachesAndSaysWhyItCannot) {
    ASSERT_EQ(run({"attach", "127.0.0.1", "1-3.4"}), kOk) << err.str();
    EXPECT_EQ(out.str(), "attached 1-3.4 from 127.0.0.1:3240 on port 0 (high speed)\n");
    ASSERT_EQ(vhci.lines.size(), 1u);
    EXPECT_TRUE(vhci.lines[0].starts_with("0 ") && vhci.lines[0].ends_with(" 3")) << vhci.lines[0];

    ASSERT_EQ(run({"status"}), kOk) << err.str();
    EXPECT_NE(out.str().find("0     high        9-1    127.0.0.1:3240         1-3.4   plain  20"),
              std::string::npos)
        << out.str();

    struct Refusal {
        std::vector<std::string> arguments;
        int status;
        std::string says;
    };
    const Refusal refusals[] = {
        {{"attach", "127.0.0.1", "1-3.4"}, kRefused, "busy on the server"},
        {{"attach", "127.0.0.1", "1-1"}, kRefused, "no device 1-1 for this host (NODEV)"},
        {{"attach", "127.0.0.1:1", "1-1"}, kNetwork, "cannot connect to 127.0.0.1:1"},
        {{"attach", "127.0.0.1:x", "1-1"}, kUsage, "bad port"},
        {{"detach", "1"}, kLocal, "port 1 holds no device"},
        {{"detach"}, kUsage, "detach takes a port or --all"},
        {{"list", "--all", "127.0.0.1"}, kUsage, "unknown option --all"},
    };
    for (const Refusal& refusal : refusals) {
        EXPECT_EQ(run(refusal.arguments), refusal.status) << refusal.arguments[0];
        EXPECT_NE(err.str().find(refusal.says), std::string::npos) << err.str();
    }

    ASSERT_EQ(run({"detach", "--all"}), kOk) << err.str();
    EXPECT_EQ(out.str(), "detached port 0\n");
    EXPECT_FALSE(records.load(0));
}

TEST_F(ImporterTest, SaysWhichModuleToLoadBeforeAskingTheServer) {
    LinuxVhci missing(scratch.path() / "no-vhci");
    Outcome<Attached> outcome =
        importDevice(kServer, "1-3.4", plainConnector(std::chrono::seconds(5)), missing);
    EXPECT_EQ(outcome.status, kLocal);
    EXPECT_NE(outcome.message.find("\"modprobe vhci-hcd\""), std::string::npos);
}

} // namespace
} // namespace halvo::attach
