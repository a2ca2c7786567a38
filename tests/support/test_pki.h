// Certificates for TLS tests, made at test time with the `openssl` command
// in a scratch folder (no key is ever kept): a CA, and certificates it or a
// stranger CA signs for the names a test needs.
#pragma once

#include "tests/support/files.h"

#include <string>

namespace halvo::testkit {

struct IssuedCertificate {
    std::string certificate;
    std::string key;
};

class TestPki {
  public:
    TestPki();

    // The trusted CA's certificate file.
    std::string caFile() const;
    // A certificate with the subjectAltName `alternatives` ("DNS:x,IP:y";
    // empty: none) and the common name `commonName`, signed by the trusted
    // CA or, with `trusted` false, by a CA nobody trusts.
    IssuedCertificate issue(const std::string& commonName, const std::string& alternatives,
                            bool trusted = true);

  private:
    void makeCa(const std::string& name);

    TempDir dir_;
    int issued_ = 0;
};

} // namespace halvo::testkit
