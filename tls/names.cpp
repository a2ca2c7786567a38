#include "tls/names.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <string_view>

namespace halvo::tls {

namespace {

constexpr std::size_t kMaxName = 253;

bool plainHostName(std::string_view name) {
    if (name.starts_with("*.")) {
        name.remove_prefix(2);
    }
    return !name.empty() && name.size() <= kMaxName &&
           std::all_of(name.begin(), name.end(), [](char c) {
               return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' ||
                      c == '_';
           });
}

void keep(const ASN1_STRING* text, std::vector<std::string>& names) {
    std::string name(reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
                     static_cast<std::size_t>(ASN1_STRING_length(text)));
    if (!plainHostName(name)) {
        return;
    }
    std::transform(name.begin(), name.end(), name.begin(), [](char c) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    });
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(std::move(name));
    }
}

} // namespace

std::vector<std::string> certificateNames(X509* certificate) {
    std::vector<std::string> names;
    if (certificate == nullptr) {
        return names;
    }
    using Names = std::unique_ptr<GENERAL_NAMES, decltype(&GENERAL_NAMES_free)>;
    Names alternatives(static_cast<GENERAL_NAMES*>(
                           X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)),
                       &GENERAL_NAMES_free);
    bool anyDns = false;
    for (int index = 0; alternatives && index < sk_GENERAL_NAME_num(alternatives.get()); ++index) {
        const GENERAL_NAME* entry = sk_GENERAL_NAME_value(alternatives.get(), index);
        if (entry->type == GEN_DNS) {
            anyDns = true;
            keep(entry->d.dNSName, names);
        }
    }
    if (anyDns) {
        return names;
    }
    const X509_NAME* subject = X509_get_subject_name(certificate);
    const int found = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (found >= 0) {
        keep(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, found)), names);
    }
    return names;
}

} // namespace halvo::tls
