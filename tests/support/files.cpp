#include "tests/support/files.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdlib.h>
#include <sys/stat.h>
#include <system_error>

namespace halvo::testkit {

namespace fs = std::filesystem;

TempDir::TempDir() {
    std::string name = (fs::temp_directory_path() / "halvo-test.XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        std::abort();
    }
    path_ = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TempDir::write(std::string_view name, std::string_view bytes, mode_t mode) const {
    const fs::path file = path_ / name;
    writeFile(file, bytes);
    ::chmod(file.c_str(), mode);
    return file.string();
}

bool writeFile(const fs::path& path, std::string_view bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    return !out.fail();
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

} // namespace halvo::testkit
