// Who may change what halvod shares, tried with real users: halvod as root,
// halvoctl as root, as a member of the admin group and as another user.
#include "tests/support/daemon_harness.h"
#include "tests/support/private_network.h"
#include "tests/support/process_runner.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace halvo::daemon {
namespace {

using testkit::DaemonProcess;
using testkit::RunResult;

const std::string kDemo = HALVOD_DEMO_DIR;
const char* const kSetpriv = "/usr/bin/setpriv";

class AccessTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        if (::geteuid() == 0) {
            static const bool isolated = testkit::isolateDaemonPort(true);
            (void)isolated;
        }
    }

    void SetUp() override {
        if (::geteuid() != 0 || ::access(kSetpriv, X_OK) != 0) {
            GTEST_SKIP() << "needs root and setpriv, to run halvoctl as other users";
        }
        // Readable by the other users, who load a rule file from here.
        ::chmod(scratch.path().c_str(), 0755);
        scratch.write("share.rules", "share\n", 0644);
        // The build folder may be closed to them: they run a copy.
        std::filesystem::copy_file(testkit::halvoctlPath(), scratch / "halvoctl");
    }

    // halvoctl run as `user` ("" for root), a uid:gid pair of the machine.
    RunResult as(const std::string& user, std::vector<std::string> args) {
        if (user.empty()) {
            return testkit::runHalvoctl(args);
        }
        std::vector<std::string> command{"--reuid=" + user.substr(0, user.find(':')),
                                         "--regid=" + user.substr(user.find(':') + 1),
                                         "--clear-groups", (scratch / "halvoctl").string()};
        command.insert(command.end(), args.begin(), args.end());
        return testkit::runProgram(kSetpriv, command);
    }

    testkit::TempDir scratch;
};

TEST_F(AccessTest, OnlyRootTheAdminGroupAndTheDaemonsUserChangeAnything) {
    struct User {
        const char* who;
        std::string id; // for setpriv; "" runs as root
        bool mayChange;
    };
    // nobody's own group is nogroup, the admin group here.
    const User users[] = {
        {"root", "", true}, {"admin", "65534:65534", true}, {"other", "1:1", false}};
    const std::vector<std::vector<std::string>> changes = {
        {"dev", "unplug", "2"},   {"conn", "drop", "-p", "50321", "10.0.0.5"},
        {"conn", "kill", "4242"}, {"rule", "load", (scratch / "share.rules").string()},
        {"dev", "share", "1"},
    };
    for (const User& user : users) {
        auto daemon = DaemonProcess::start(
            {"--listen", "127.0.0.1:32999", "--devices", kDemo + "/devices.json", "--connections",
             kDemo + "/connections.json", "--rules", (scratch / "halvod.rules").string(),
             "--admin-group", "nogroup"});
        ASSERT_TRUE(daemon) << user.who;
        const std::string connectionsBefore = as(user.id, {"conn"}).out;
        for (const auto& change : changes) {
            RunResult run = as(user.id, change);
            EXPECT_EQ(run.status == 0, user.mayChange)
                << user.who << " " << change[0] << " " << change[1] << ": " << run.err;
        }
        // Looking and testing in one's own transaction stay open to everyone.
        EXPECT_EQ(as(user.id, {"dev"}).status, 0) << user.who;
        EXPECT_EQ(
            as(user.id, {"rule", "test", "-f", (scratch / "share.rules").string(), "-r", "1"}).out,
            "share (rule #1)\n")
            << user.who;
        EXPECT_EQ(as(user.id, {"conn"}).out == connectionsBefore, !user.mayChange) << user.who;
        EXPECT_EQ(as(user.id, {"rule"}).out.empty(), !user.mayChange) << user.who;
        daemon->signal(SIGTERM);
        daemon->wait();
        if (!user.mayChange) {
            EXPECT_NE(daemon->errorOutput().find("refused to commit rules: permission denied "
                                                 "HALVO_UID=1"),
                      std::string::npos)
                << daemon->errorOutput();
        }
        ::unlink((scratch / "halvod.rules").c_str());
    }
}

} // namespace
} // namespace halvo::daemon
