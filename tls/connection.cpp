#include "tls/connection.h"

#include "tls/names.h"

#include <arpa/inet.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace halvo::tls {

namespace {

// What the kernel holds of this session, as OpenSSL's socket BIO knows it.
class SocketKernelState final : public KernelState {
  public:
    explicit SocketKernelState(SSL* ssl) : ssl_(ssl) {}
    bool kernelSends() const override { return BIO_get_ktls_send(SSL_get_wbio(ssl_)) != 0; }
    bool kernelReceives() const override { return BIO_get_ktls_recv(SSL_get_rbio(ssl_)) != 0; }
    std::size_t pendingBytes() const override {
        return static_cast<std::size_t>(SSL_pending(ssl_));
    }

  private:
    SSL* ssl_;
};

bool isAddress(const std::string& text) {
    unsigned char scratch[16];
    return inet_pton(AF_INET, text.c_str(), scratch) == 1 ||
           inet_pton(AF_INET6, text.c_str(), scratch) == 1;
}

util::Expected<void> expectServer(SSL* ssl, const std::string& name) {
    if (name.empty()) {
        return {};
    }
    X509_VERIFY_PARAM* check = SSL_get0_param(ssl);
    if (isAddress(name)) {
        if (X509_VERIFY_PARAM_set1_ip_asc(check, name.c_str()) != 1) {
            return util::Failure{"cannot check the server's address " + name};
        }
        return {};
    }
    X509_VERIFY_PARAM_set_hostflags(check, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    if (SSL_set1_host(ssl, name.c_str()) != 1 ||
        // SSL_set_tlsext_host_name, without the macro's C cast.
        SSL_ctrl(ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                 const_cast<char*>(name.c_str())) != 1) {
        return util::Failure{"cannot check the server's name " + name};
    }
    return {};
}

} // namespace

void Connection::Free::operator()(SSL* ssl) const {
    // SSL_free sends nothing and leaves the socket open (SSL_set_fd's BIO
    // does not own it).
    SSL_free(ssl);
}

Connection::Connection(SSL* ssl) : ssl_(ssl), kernel_(std::make_unique<SocketKernelState>(ssl)) {}

util::Expected<Connection> Connection::create(const Context& context, int socket,
                                              const std::string& serverName) {
    ERR_clear_error();
    SSL* ssl = SSL_new(context.native());
    if (ssl == nullptr) {
        return util::Failure{takeErrors("cannot start TLS")};
    }
    Connection connection(ssl);
    if (SSL_set_fd(ssl, socket) != 1) {
        return util::Failure{takeErrors("cannot start TLS on the socket")};
    }
    if (context.role() == Role::server) {
        SSL_set_accept_state(ssl);
    } else {
        SSL_set_connect_state(ssl);
        if (auto checked = expectServer(ssl, serverName); !checked) {
            return util::Failure{checked.error()};
        }
    }
    return connection;
}

util::Expected<Progress> Connection::outcome(int result, const char* step) const {
    switch (SSL_get_error(ssl_.get(), result)) {
    case SSL_ERROR_WANT_READ:
        return Progress::wantRead;
    case SSL_ERROR_WANT_WRITE:
        return Progress::wantWrite;
    case SSL_ERROR_ZERO_RETURN:
        return util::Failure{std::string(step) + ": the peer closed the connection"};
    case SSL_ERROR_SYSCALL:
        // Mid-handshake this is mostly the peer refusing what it was shown
        // (a certificate, a protocol) and closing.
        return util::Failure{takeErrors(std::string(step) + ": the peer ended the connection")};
    default:
        break;
    }
    const long verified = SSL_get_verify_result(ssl_.get());
    std::string why = std::string(step) + " failed";
    if (verified != X509_V_OK) {
        why +=
            ": certificate not accepted: " + std::string(X509_verify_cert_error_string(verified));
    }
    return util::Failure{takeErrors(why)};
}

util::Expected<Progress> Connection::handshake() {
    const int result = SSL_do_handshake(ssl_.get());
    if (result == 1) {
        return Progress::done;
    }
    return outcome(result, "TLS handshake");
}

util::Expected<Transfer> Connection::transferred(int result, std::size_t bytes,
                                                 const char* step) const {
    if (result == 1) {
        return Transfer{Progress::done, bytes};
    }
    auto progress = outcome(result, step);
    if (!progress) {
        return util::Failure{progress.error()};
    }
    return Transfer{*progress, 0};
}

util::Expected<Transfer> Connection::read(std::span<std::uint8_t> into) {
    std::size_t got = 0;
    const int result = SSL_read_ex(ssl_.get(), into.data(), into.size(), &got);
    return transferred(result, got, "TLS read");
}

util::Expected<Transfer> Connection::write(std::span<const std::uint8_t> bytes) {
    std::size_t sent = 0;
    const int result = SSL_write_ex(ssl_.get(), bytes.data(), bytes.size(), &sent);
    return transferred(result, sent, "TLS write");
}

std::vector<std::string> Connection::peerNames() const {
    if (SSL_get_verify_result(ssl_.get()) != X509_V_OK) {
        return {};
    }
    X509* peer = SSL_get0_peer_certificate(ssl_.get());
    return certificateNames(peer);
}

util::Expected<void> Connection::readyForKernel() const {
    return checkKernelHandOff(*kernel_);
}

} // namespace halvo::tls
