// halvo-attach --tls against the real halvod's TLS port, in a private
// network namespace, with certificates made for the test: a name the rules
// give nothing is told so, and a silent host is dropped.  Which names get
// what is the share table's test, the handshake's verification the TLS
// connection's; imports into the kernel's TLS and vhci-hcd, a certificate
// from an unknown CA and a certificate name the rules share with are the VM
// suite's (tests/vm/checks/70-tls.sh).
#include "attach/commands.h"
#include "attach/exit_status.h"
#include "tests/support/daemon_harness.h"
#include "tests/support/private_network.h"
#include "tests/support/test_pki.h"

#include <gtest/gtest.h>

namespace halvo::attach {
namespace {

const std::string kDemo = HALVOD_DEMO_DIR;

class TlsImporterTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        static const bool isolated = testkit::isolateDaemonPort();
        (void)isolated;
        pki = new testkit::TestPki;
        server = pki->issue("halvod", "DNS:server.lan,IP:127.0.0.1");
        blocked = pki->issue("blocked.lan", "");
    }
    static void TearDownTestSuite() { delete pki; }

    void SetUp() override {
        // The serial adapter (1-3.4) goes to the holder of lab-mac.local's
        // certificate only; nobody else is given anything.
        const std::string rules =
            scratch.write("tls.rules", "share host \"lab-mac.local\" serial \"A50285BI\"\n");
        daemon = testkit::DaemonProcess::start(
            {"--listen", "127.0.0.1:32999", "--devices", kDemo + "/devices.json", "--rules", rules,
             "--share-tls-listen", "127.0.0.1:3241", "--tls-cert", server.certificate, "--tls-key",
             server.key, "--tls-client-ca", pki->caFile(), "--share-timeout-ms", "3000"});
        ASSERT_TRUE(daemon) << "halvod did not start";
    }

    bool logged(const std::string& text) const {
        return testkit::eventually(
            [&] { return daemon->errorOutput().find(text) != std::string::npos; },
            std::chrono::seconds(10));
    }

    static inline testkit::TestPki* pki = nullptr;
    static inline testkit::IssuedCertificate server, blocked;
    testkit::TempDir scratch;
    std::unique_ptr<testkit::DaemonProcess> daemon;
};

TEST_F(TlsImporterTest, ANameTheRulesGiveNothingIsToldSoAndASilentHostIsDropped) {
    const testkit::RunResult listed = testkit::runProgram(
        HALVO_ATTACH_PATH, {"list", "--tls", "--cert", blocked.certificate, "--key", blocked.key,
                            "--ca", pki->caFile(), "127.0.0.1:3241"});
    EXPECT_EQ(listed.status, kOk) << listed.err;
    EXPECT_EQ(listed.out, "127.0.0.1:3241 shares no device with this host\n");

    // A host that connects and never starts the handshake.
    testkit::TestClient silent(3241);
    EXPECT_TRUE(logged("USB/IP host dropped: no TLS handshake in time")) << daemon->errorOutput();
}

} // namespace
} // namespace halvo::attach
