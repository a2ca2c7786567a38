#include "tests/support/test_pki.h"

#include <cstdlib>
#include <stdexcept>

namespace halvo::testkit {

namespace {

void run(const std::string& command) {
    if (std::system((command + " 2>/dev/null >/dev/null").c_str()) != 0) {
        throw std::runtime_error("test certificates: failed: " + command);
    }
}

const std::string kNewKey = " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes";

} // namespace

TestPki::TestPki() {
    makeCa("ca");
    makeCa("stranger");
}

void TestPki::makeCa(const std::string& name) {
    const std::string base = (dir_ / name).string();
    run("openssl req -x509 -days 2" + kNewKey + " -keyout " + base + ".key -out " + base +
        ".pem -subj /CN=halvo-test-" + name);
}

std::string TestPki::caFile() const {
    return (dir_ / "ca.pem").string();
}

IssuedCertificate TestPki::issue(const std::string& commonName, const std::string& alternatives,
                                 bool trusted) {
    const std::string base = (dir_ / ("leaf" + std::to_string(++issued_))).string();
    const std::string ca = (dir_ / (trusted ? "ca" : "stranger")).string();
    dir_.write("leaf" + std::to_string(issued_) + ".ext",
               alternatives.empty() ? "" : "subjectAltName=" + alternatives + "\n");
    run("openssl req" + kNewKey + " -keyout " + base + ".key -out " + base +
        ".csr -subj '/CN=" + commonName + "'");
    run("openssl x509 -req -days 2 -in " + base + ".csr -CA " + ca + ".pem -CAkey " + ca +
        ".key -CAcreateserial -extfile " + base + ".ext -out " + base + ".pem");
    return {base + ".pem", base + ".key"};
}

} // namespace halvo::testkit
