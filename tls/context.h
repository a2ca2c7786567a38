// An OpenSSL context for halvod's TLS port and halvo-attach --tls.  Both
// ends speak TLS 1.2 with ECDHE and AES-GCM only: OpenSSL 3.0 gives the
// kernel only the sending half of a TLS 1.3 session, and the device's
// traffic must be encrypted by the kernel both ways.  Both ends show a
// certificate and verify the other's against their CA file; no session
// tickets, no renegotiation, so that no TLS record has to follow the
// hand-off to the kernel.
#pragma once

#include "util/expected.h"

#include <memory>
#include <string>

using SSL_CTX = struct ssl_ctx_st;

namespace halvo::tls {

enum class Role { server, client };

struct Credentials {
    std::string certificateFile; // PEM, the certificate and its chain
    std::string keyFile;         // PEM, its private key
    std::string caFile;          // PEM, the CA certificates the peer must chain to
};

class Context {
  public:
    // The context, or which file could not be used and why.
    static util::Expected<Context> create(Role role, const Credentials& credentials);

    SSL_CTX* native() const { return context_.get(); }
    Role role() const { return role_; }

  private:
    struct Free {
        void operator()(SSL_CTX* context) const;
    };
    Context(Role role, SSL_CTX* context) : role_(role), context_(context, Free{}) {}

    Role role_;
    std::shared_ptr<SSL_CTX> context_;
};

// The OpenSSL error queue in one line (emptied), or `fallback` when empty.
std::string takeErrors(const std::string& fallback);

} // namespace halvo::tls
