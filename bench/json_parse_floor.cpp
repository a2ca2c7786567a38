// The floor for a large device list: read the reply's payload from a file
// into one buffer of its exact size and parse it with Boost.JSON into an
// arena, as the utility's own decoder does, and nothing else.  It runs as a
// whole process, like the utility, so that both pay start-up and the copy
// of the bytes from the kernel; it prints the number of devices so that the
// parse cannot be skipped.
//
// Usage: json_parse_floor <payload file>.  Exit status 0 when the file holds
// a JSON object with a "devices" array, 1 otherwise.
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace json = boost::json;

struct FileBytes {
    std::unique_ptr<char[]> data;
    std::size_t size = 0;
};

std::optional<FileBytes> readWholeFile(const char* path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    struct stat status {};
    std::optional<FileBytes> result;
    if (fstat(fd, &status) == 0) {
        FileBytes bytes{
            std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(status.st_size)),
            static_cast<std::size_t>(status.st_size)};
        std::size_t filled = 0;
        while (filled < bytes.size) {
            ssize_t count = read(fd, bytes.data.get() + filled, bytes.size - filled);
            if (count <= 0) {
                break;
            }
            filled += static_cast<std::size_t>(count);
        }
        if (filled == bytes.size) {
            result = std::move(bytes);
        }
    }
    close(fd);
    return result;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: json_parse_floor <payload file>\n", stderr);
        return 1;
    }
    std::optional<FileBytes> payload = readWholeFile(argv[1]);
    if (!payload) {
        std::perror(argv[1]);
        return 1;
    }
    json::storage_ptr arena = json::make_shared_resource<json::monotonic_resource>();
    std::error_code error;
    json::value document =
        json::parse(std::string_view(payload->data.get(), payload->size), error, arena);
    const json::object* reply = error ? nullptr : document.if_object();
    const json::value* devices = reply != nullptr ? reply->if_contains("devices") : nullptr;
    if (devices == nullptr || !devices->is_array()) {
        std::fputs("not a device list\n", stderr);
        return 1;
    }
    std::printf("%zu\n", devices->get_array().size());
    return 0;
}
