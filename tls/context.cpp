#include "tls/context.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <openssl/err.h>
#include <openssl/ssl.h>

namespace halvo::tls {

namespace {

// AEAD suites whose keys Linux's TLS layer takes; ECDHE for forward secrecy.
constexpr const char* kCiphers = "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-RSA-AES128-GCM-SHA256:"
                                 "ECDHE-ECDSA-AES256-GCM-SHA384:ECDHE-RSA-AES256-GCM-SHA384";

// Whether `path` can be opened for reading; the system's reason otherwise.
util::Expected<void> readable(const std::string& what, const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return util::Failure{"cannot read " + what + " " + path + ": " + std::strerror(errno)};
    }
    std::fclose(file);
    return {};
}

util::Expected<void> loadFiles(SSL_CTX* context, const Credentials& credentials) {
    for (const auto& [what, path] :
         {std::pair{"certificate", &credentials.certificateFile},
          std::pair{"key", &credentials.keyFile}, std::pair{"CA file", &credentials.caFile}}) {
        if (auto ok = readable(what, *path); !ok) {
            return ok;
        }
    }
    if (SSL_CTX_use_certificate_chain_file(context, credentials.certificateFile.c_str()) != 1) {
        return util::Failure{takeErrors("no certificate in " + credentials.certificateFile)};
    }
    if (SSL_CTX_use_PrivateKey_file(context, credentials.keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        return util::Failure{takeErrors("cannot use the private key in " + credentials.keyFile)};
    }
    if (SSL_CTX_check_private_key(context) != 1) {
        return util::Failure{"the key in " + credentials.keyFile + " does not belong to " +
                             credentials.certificateFile};
    }
    if (SSL_CTX_load_verify_locations(context, credentials.caFile.c_str(), nullptr) != 1) {
        return util::Failure{takeErrors("no CA certificate in " + credentials.caFile)};
    }
    return {};
}

} // namespace

void Context::Free::operator()(SSL_CTX* context) const {
    SSL_CTX_free(context);
}

std::string takeErrors(const std::string& fallback) {
    std::string text;
    while (const unsigned long error = ERR_get_error()) {
        char buffer[256];
        ERR_error_string_n(error, buffer, sizeof buffer);
        text += (text.empty() ? "" : "; ") + std::string(buffer);
    }
    return text.empty() ? fallback : fallback + " (" + text + ")";
}

util::Expected<Context> Context::create(Role role, const Credentials& credentials) {
    ERR_clear_error();
    SSL_CTX* raw = SSL_CTX_new(role == Role::server ? TLS_server_method() : TLS_client_method());
    if (raw == nullptr) {
        return util::Failure{takeErrors("cannot make a TLS context")};
    }
    Context context(role, raw);
    SSL_CTX_set_min_proto_version(raw, TLS1_2_VERSION);
    SSL_CTX_set_max_proto_version(raw, TLS1_2_VERSION);
    if (SSL_CTX_set_cipher_list(raw, kCiphers) != 1) {
        return util::Failure{takeErrors("cannot set the TLS ciphers")};
    }
    SSL_CTX_set_options(raw, SSL_OP_ENABLE_KTLS | SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_TICKET |
                                 SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_num_tickets(raw, 0);
    SSL_CTX_set_session_cache_mode(raw, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_verify(raw,
                       role == Role::server ? SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT
                                            : SSL_VERIFY_PEER,
                       nullptr);
    if (auto loaded = loadFiles(raw, credentials); !loaded) {
        return util::Failure{loaded.error()};
    }
    return context;
}

} // namespace halvo::tls
