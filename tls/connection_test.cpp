#include "tests/support/test_pki.h"
#include "tls/connection.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::tls {
namespace {

// Runs both ends' handshake steps in turn on a socket pair until both are
// done or one fails; whether both finished.
bool handshake(Connection& server, const std::function<int()>& clientStep) {
    bool serverDone = false;
    bool clientDone = false;
    for (int round = 0; round < 50 && !(serverDone && clientDone); ++round) {
        if (!clientDone) {
            const int result = clientStep();
            if (result < 0) {
                return false;
            }
            clientDone = result == 1;
        }
        if (!serverDone) {
            auto step = server.handshake();
            if (!step) {
                return false;
            }
            serverDone = *step == Progress::done;
        }
    }
    return serverDone && clientDone;
}

struct SocketPair {
    int fds[2] = {-1, -1};
    SocketPair() { ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds); }
    ~SocketPair() {
        ::close(fds[0]);
        ::close(fds[1]);
    }
};

class TlsConnection : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        pki = new testkit::TestPki;
        serverCert = pki->issue("server.lan", "DNS:server.lan");
        clientCert = pki->issue("client.lan", "DNS:client.lan");
    }
    static void TearDownTestSuite() { delete pki; }

    Credentials credentials(const testkit::IssuedCertificate& issued) const {
        return {issued.certificate, issued.key, pki->caFile()};
    }

    static inline testkit::TestPki* pki = nullptr;
    static inline testkit::IssuedCertificate serverCert, clientCert;
};

// A client that is not ours: it offers what the case says.
TEST_F(TlsConnection, TheServerTakesOnlyTls12WithEcdheAndAesGcm) {
    struct Case {
        const char* what;
        int minVersion, maxVersion;
        const char* ciphers; // TLS 1.2 and below
        const char* suites;  // TLS 1.3
        bool completes;
    } cases[] = {
        {"TLS 1.2 AES-GCM", TLS1_2_VERSION, TLS1_2_VERSION, "ECDHE-ECDSA-AES128-GCM-SHA256",
         "TLS_AES_128_GCM_SHA256", true},
        {"TLS 1.3 only", TLS1_3_VERSION, TLS1_3_VERSION, "ECDHE-ECDSA-AES128-GCM-SHA256",
         "TLS_AES_128_GCM_SHA256", false},
        {"CBC with HMAC", TLS1_2_VERSION, TLS1_2_VERSION, "ECDHE-ECDSA-AES128-SHA256",
         "TLS_AES_128_GCM_SHA256", false},
        {"ChaCha20", TLS1_2_VERSION, TLS1_2_VERSION, "ECDHE-ECDSA-CHACHA20-POLY1305",
         "TLS_AES_128_GCM_SHA256", false},
        {"TLS 1.1", TLS1_1_VERSION, TLS1_1_VERSION, "ALL:@SECLEVEL=0", "TLS_AES_128_GCM_SHA256",
         false},
    };
    auto server = Context::create(Role::server, credentials(serverCert));
    ASSERT_TRUE(server) << server.error();
    for (const Case& c : cases) {
        SocketPair pair;
        std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> clientContext(
            SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
        SSL_CTX_set_min_proto_version(clientContext.get(), c.minVersion);
        SSL_CTX_set_max_proto_version(clientContext.get(), c.maxVersion);
        SSL_CTX_set_cipher_list(clientContext.get(), c.ciphers);
        SSL_CTX_set_ciphersuites(clientContext.get(), c.suites);
        SSL_CTX_use_certificate_file(clientContext.get(), clientCert.certificate.c_str(),
                                     SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(clientContext.get(), clientCert.key.c_str(), SSL_FILETYPE_PEM);
        std::unique_ptr<SSL, decltype(&SSL_free)> client(SSL_new(clientContext.get()), &SSL_free);
        SSL_set_fd(client.get(), pair.fds[1]);
        SSL_set_connect_state(client.get());
        auto accepting = Connection::create(*server, pair.fds[0]);
        ASSERT_TRUE(accepting);
        const bool completed = handshake(*accepting, [&] {
            const int result = SSL_do_handshake(client.get());
            if (result == 1) {
                return 1;
            }
            const int error = SSL_get_error(client.get(), result);
            return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE ? 0 : -1;
        });
        EXPECT_EQ(completed, c.completes) << c.what;
    }
}

// Our own client: the certificates each end shows decide.
TEST_F(TlsConnection, BothEndsVerifyThePeersCertificate) {
    const testkit::IssuedCertificate stranger = pki->issue("client.lan", "DNS:client.lan", false);
    struct Case {
        const char* what;
        const testkit::IssuedCertificate* client;
        std::string serverName;
        bool completes;
    } cases[] = {
        {"trusted, right name", &clientCert, "server.lan", true},
        {"server named otherwise", &clientCert, "other.lan", false},
        {"client from an unknown CA", &stranger, "server.lan", false},
    };
    auto server = Context::create(Role::server, credentials(serverCert));
    ASSERT_TRUE(server) << server.error();
    for (const Case& c : cases) {
        SocketPair pair;
        auto client = Context::create(Role::client, credentials(*c.client));
        ASSERT_TRUE(client) << client.error();
        auto accepting = Connection::create(*server, pair.fds[0]);
        auto connecting = Connection::create(*client, pair.fds[1], c.serverName);
        ASSERT_TRUE(accepting && connecting);
        const bool completed = handshake(*accepting, [&] {
            auto step = connecting->handshake();
            return !step ? -1 : *step == Progress::done ? 1 : 0;
        });
        EXPECT_EQ(completed, c.completes) << c.what;
        if (completed) {
            EXPECT_EQ(accepting->peerNames(), std::vector<std::string>{"client.lan"});
        }
    }
}

TEST_F(TlsConnection, AFileThatCannotBeReadIsNamed) {
    Credentials missing = credentials(serverCert);
    missing.keyFile = "/nonexistent/key.pem";
    auto context = Context::create(Role::server, missing);
    ASSERT_FALSE(context);
    EXPECT_NE(context.error().find("/nonexistent/key.pem"), std::string::npos) << context.error();
}

} // namespace
} // namespace halvo::tls
