#include "attach/linux_vhci.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace halvo::attach {

namespace {

const std::string kNoModule =
    "vhci-hcd is not loaded (no /sys/devices/platform/vhci_hcd.0): load it with "
    "\"modprobe vhci-hcd\"";

std::optional<std::string> readWhole(const std::filesystem::path& path) {
    std::ifstream in(path);
    if (!in) {
        return std::nullopt;
    }
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

util::Expected<std::vector<VhciPort>> LinuxVhci::ports() {
    std::error_code error;
    if (!std::filesystem::is_directory(folder_, error)) {
        return util::Failure{kNoModule};
    }
    std::vector<VhciPort> all;
    for (int index = 0;; ++index) {
        const std::string name = index == 0 ? "status" : "status." + std::to_string(index);
        const auto text = readWhole(folder_ / name);
        if (!text) {
            if (index == 0) {
                return util::Failure{"cannot read " + (folder_ / name).string() + ": " +
                                     std::strerror(errno)};
            }
            break;
        }
        const std::vector<VhciPort> some = parseVhciStatus(*text);
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

util::Expected<Done> LinuxVhci::write(const char* file, const std::string& line) {
    const std::filesystem::path path = folder_ / file;
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT) {
            return util::Failure{kNoModule};
        }
        const bool denied = errno == EACCES || errno == EPERM;
        return util::Failure{"cannot open " + path.string() + ": " + std::strerror(errno) +
                             (denied ? " (run as root)" : "")};
    }
    const ssize_t written = ::write(fd, line.data(), line.size());
    const int writeError = errno;
    ::close(fd);
    if (written != static_cast<ssize_t>(line.size())) {
        return util::Failure{"vhci-hcd refused \"" + line + "\" on " + path.string() + ": " +
                             std::strerror(writeError)};
    }
    return Done{};
}

util::Expected<Done> LinuxVhci::attach(const std::string& line) {
    return write("attach", line);
}

util::Expected<Done> LinuxVhci::detach(unsigned port) {
    return write("detach", std::to_string(port));
}

} // namespace halvo::attach
