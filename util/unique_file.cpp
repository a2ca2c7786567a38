#include "util/unique_file.h"

#include <cerrno>
#include <fcntl.h>
#include <random>
#include <string_view>

namespace halvo::util {
namespace {

constexpr std::string_view kNameCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
// Names taken this many times in a row mean something other than chance is
// at work.
constexpr int kAttempts = 1000;

std::size_t placeholderStart(const std::string& path) {
    std::size_t start = path.size();
    while (start > 0 && path[start - 1] == 'X') {
        --start;
    }
    return start;
}

} // namespace

int makeUniqueFile(std::string& path, mode_t mode) {
    const std::size_t start = placeholderStart(path);
    if (start == path.size()) {
        errno = EINVAL;
        return -1;
    }
    std::random_device entropy;
    std::uniform_int_distribution<std::size_t> pick(0, kNameCharacters.size() - 1);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        for (std::size_t i = start; i < path.size(); ++i) {
            path[i] = kNameCharacters[pick(entropy)];
        }
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (fd >= 0 || errno != EEXIST) {
            return fd;
        }
    }
    return -1;
}

} // namespace halvo::util
