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

void FixtureHandOff::handOver(const Device& device, int socketFd, Done done) {
    int copy = ::fcntl(socketFd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) {
        done(util::Failure{std::string("cannot keep the connection: ") + std::strerror(errno)});
        return;
    }
    close(device.port);
    held_[device.port] = copy;
    done({});
}

ShareUse FixtureHandOff::use(const Device& device) {
    auto found = held_.find(device.port);
    if (found == held_.end()) {
        return ShareUse::released;
    }
    // What the host sends is discarded (there is no device to take it), a
    // bounded amount per check so that a flood cannot hold the daemon.
    constexpr int kReadsPerCheck = 16;
    char discarded[4096];
    for (int attempt = 0; attempt < kReadsPerCheck; ++attempt) {
        ssize_t got = ::recv(found->second, discarded, sizeof discarded, MSG_DONTWAIT);
        if (got <= 0) {
            const bool open =
                got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
            return open ? ShareUse::inUse : ShareUse::released;
        }
    }
    return ShareUse::inUse;
}

void FixtureHandOff::end(const Device& device, Done ended) {
    close(device.port);
    if (ended) {
        ended({});
    }
}

void FixtureHandOff::close(const std::string& port) {
    auto found = held_.find(port);
    if (found != held_.end()) {
        ::close(found->second);
        held_.erase(found);
    }
}

} // namespace halvo::daemon
