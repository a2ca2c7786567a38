#include "util/json_file.h"

#include <boost/json/parse.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace halvo::util {

namespace json = boost::json;

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

std::string describeErrno(const std::string& path) {
    return path + ": " + std::strerror(errno);
}

} // namespace

Expected<std::string> readWholeFile(const std::string& path) {
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        return Failure{describeErrno(path)};
    }
    return readWholeStream(file.get(), path);
}

Expected<std::string> readWholeStream(std::FILE* stream, const std::string& name) {
    std::string bytes;
    char chunk[65536];
    std::size_t count = 0;
    while ((count = std::fread(chunk, 1, sizeof chunk, stream)) > 0) {
        if (bytes.size() + count > kMaxWholeFileSize) {
            return Failure{name + ": larger than " +
                           std::to_string(kMaxWholeFileSize / (1024 * 1024)) + " MiB"};
        }
        bytes.append(chunk, count);
    }
    if (std::ferror(stream)) {
        return Failure{describeErrno(name)};
    }
    return bytes;
}

Expected<json::object> readJsonObjectFile(const std::string& path) {
    auto bytes = readWholeFile(path);
    if (!bytes) {
        return Failure{bytes.error()};
    }
    std::error_code error;
    json::value document = json::parse(*bytes, error);
    if (error) {
        return Failure{path + ": not JSON: " + error.message()};
    }
    if (!document.is_object()) {
        return Failure{path + ": not a JSON object"};
    }
    return std::move(document.get_object());
}

} // namespace halvo::util
