#include "tls/names.h"

#include <gtest/gtest.h>
#include <memory>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace halvo::tls {
namespace {

using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

// An unsigned certificate: the names are read whoever signed it.
Certificate withNames(const std::string& commonName, const std::string& alternatives) {
    Certificate certificate(X509_new(), &X509_free);
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    if (!commonName.empty()) {
        X509_NAME_add_entry_by_NID(subject, NID_commonName, MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(commonName.data()),
                                   static_cast<int>(commonName.size()), -1, 0);
    }
    if (!alternatives.empty()) {
        X509_EXTENSION* extension =
            X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, alternatives.c_str());
        X509_add_ext(certificate.get(), extension, -1);
        X509_EXTENSION_free(extension);
    }
    return certificate;
}

TEST(CertificateNames, DnsEntriesFirstThenCommonNameOnlyPlainHostNames) {
    struct Case {
        std::string commonName;
        std::string alternatives;
        std::vector<std::string> names;
    } cases[] = {
        {"cn.example", "DNS:lab-mac.local,DNS:Lab-Mac.Local,DNS:b.lan", {"lab-mac.local", "b.lan"}},
        {"cn.example", "", {"cn.example"}},
        {"cn.example", "IP:10.0.0.1,email:a@b.c", {"cn.example"}}, // no DNS entry: the CN
        {"cn.example", "DNS:*.lab.lan", {"*.lab.lan"}},
        {"cn.example", "DNS:bad name,DNS:semi;colon", {}}, // DNS entries, none usable: no CN
        {"with space", "", {}},
        {"", "", {}},
        {"Upper.Example", "", {"upper.example"}},
        {std::string(254, 'a'), "", {}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(certificateNames(withNames(c.commonName, c.alternatives).get()), c.names)
            << c.commonName << " / " << c.alternatives;
    }
    EXPECT_TRUE(certificateNames(nullptr).empty());
}

TEST(CertificateNames, ANameWithAnEmbeddedNulIsLeftOut) {
    Certificate certificate = withNames("", "");
    const unsigned char text[] = {'a', '.', 'l', 'a', 'n', 0, 'x'};
    X509_NAME_add_entry_by_NID(X509_get_subject_name(certificate.get()), NID_commonName,
                               V_ASN1_IA5STRING, text, sizeof text, -1, 0);
    EXPECT_TRUE(certificateNames(certificate.get()).empty());
}

} // namespace
} // namespace halvo::tls
