#include "daemon/platform/fixture_hand_off.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::daemon {

FixtureHandOff::~FixtureHandOff() {
    for (const auto& [port, fd] : held_) {
        ::close(fd);
    }
}

std::optional<std::string> FixtureHandOff::handOver(const Device& device, int socketFd) {
    int copy = ::fcntl(socketFd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) {
        return std::string("cannot keep the connection: ") + std::strerror(errno);
    }
    end(device);
    held_[device.port] = copy;
    return std::nullopt;
}

bool FixtureHandOff::inUse(const Device& device) {
    auto found = held_.find(device.port);
    if (found == held_.end()) {
        return false;
    }
    // Only the host's closing (or a broken link) ends a held connection;
    // anything the host sends is left unread.
    char byte = 0;
    ssize_t peeked = ::recv(found->second, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return peeked > 0 || (peeked < 0 && (errno == EAGAIN || errno == EWOULDBLOCK));
}

std::optional<std::string> FixtureHandOff::end(const Device& device) {
    auto found = held_.find(device.port);
    if (found != held_.end()) {
        ::close(found->second);
        held_.erase(found);
    }
    return std::nullopt;
}

} // namespace halvo::daemon
