#include "daemon/platform/linux/sysfs_attribute.h"

#include "util/json_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace halvo::daemon {

std::optional<std::string> readAttribute(const std::filesystem::path& folder, const char* name) {
    auto bytes = util::readWholeFile((folder / name).string());
    if (!bytes) {
        return std::nullopt;
    }
    std::string text = std::move(bytes).value();
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

util::Expected<void> writeAttribute(const std::filesystem::path& file, std::string_view value) {
    int fd = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        return util::Failure{file.string() + ": " + std::strerror(errno)};
    }
    ssize_t written = ::write(fd, value.data(), value.size());
    int writeErrno = errno;
    ::close(fd);
    if (written != static_cast<ssize_t>(value.size())) {
        return util::Failure{file.string() + ": " + std::strerror(written < 0 ? writeErrno : EIO)};
    }
    return {};
}

} // namespace halvo::daemon
