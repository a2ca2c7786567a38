// The names a certificate gives its holder: the subjectAltName DNS entries,
// or without any the subject's common name.  They are lower-cased; a name
// that is no plain host name (empty, too long, bytes other than letters,
// digits, '-', '.', '_' or a leading "*.") is left out, so that a name can
// go into a log line, a rule comparison or a listing as it is.
#pragma once

#include <string>
#include <vector>

using X509 = struct x509_st;

namespace halvo::tls {

std::vector<std::string> certificateNames(X509* certificate);

} // namespace halvo::tls
