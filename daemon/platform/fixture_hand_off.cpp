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

util::Expected<void> FixtureHandOff::handOver(const Device& device, int socketFd) {
    int copy = ::fcntl(socketFd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) {
        return util::Failure{std::string("cannot keep the connection: ") + std::strerror(errno)};
    }
    static_cast<void>(end(device));
    held_[device.port] = copy;
    return {};
}

bool FixtureHandOff::inUse(const Device& device) {
    auto found = held_.find(device.port);
    if (found == held_.end()) {
        return false;
    }
    // What the host sends is discarded (there is no device to take it), a
    // bounded amount per check so that a flood cannot hold the daemon.
    constexpr int kReadsPerCheck = 16;
    char discarded[4096];
    for (int attempt = 0; attempt < kReadsPerCheck; ++attempt) {
        ssize_t got = ::recv(found->second, discarded, sizeof discarded, MSG_DONTWAIT);
        if (got <= 0) {
            return got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
        }
    }
    return true;
}

util::Expected<void> FixtureHandOff::end(const Device& device) {
    auto found = held_.find(device.port);
    if (found != held_.end()) {
        ::close(found->second);
        held_.erase(found);
    }
    return {};
}

} // namespace halvo::daemon
