// halvo-attach --tls against the real halvod's TLS port, in a private
// network namespace, with certificates made for the test: the certificate's
// name decides what the host sees, a certificate from another CA never
// gets past the handshake, and a silent host is dropped.  Imports into the
// kernel's TLS and vhci-hcd are the VM suite's (tests/vm/checks/70-tls.sh).
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
        lab = pki->issue("lab-mac.local", "DNS:lab-mac.local");
        blocked = pki->issue("blocked.lan", "");
        stranger = pki->issue("lab-mac.local", "DNS:lab-mac.local", false);
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

    static std::vector<std::string> tlsOptions(const testkit::IssuedCertificate& mine) {
        return {"--tls", "--cert", mine.certificate, "--key", mine.key, "--ca", pki->caFile()};
    }

    bool logged(const std::string& text) const {
        return testkit::eventually(
            [&] { return daemon->errorOutput().find(text) != std::string::npos; },
            std::chrono::seconds(10));
    }

    static inline testkit::TestPki* pki = nullptr;
    static inline testkit::IssuedCertificate server, lab, blocked, stranger;
    testkit::TempDir scratch;
    std::unique_ptr<testkit::DaemonProcess> daemon;
};

TEST_F(TlsImporterTest, TheHandshakeAndTheCertificateNameDecideWhatAHostSees) {
    struct Case {
        const testkit::IssuedCertificate* mine;
        int status;
        std::string says;
    } cases[] = {
        {&lab, kOk, "1-3.4        0403:6001"},
        {&blocked, kOk, "127.0.0.1:3241 shares no device with this host"},
        {&stranger, kNetwork, "TLS handshake"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> arguments{"list"};
        for (const std::string& option : tlsOptions(*c.mine)) {
            arguments.push_back(option);
        }
        arguments.push_back("127.0.0.1:3241");
        const testkit::RunResult listed = testkit::runProgram(HALVO_ATTACH_PATH, arguments);
        EXPECT_EQ(listed.status, c.status) << listed.err;
        EXPECT_NE((listed.out + listed.err).find(c.says), std::string::npos)
            << listed.out << listed.err;
    }
    // The client may see the handshake fail before halvod has logged it.
    EXPECT_TRUE(logged("TLS handshake failed")) << daemon->errorOutput();

    // A host that connects and never starts the handshake.
    testkit::TestClient silent(3241);
    EXPECT_TRUE(logged("USB/IP host dropped: no TLS handshake in time")) << daemon->errorOutput();
}

} // namespace
} // namespace halvo::attach
