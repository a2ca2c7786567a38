#include "tests/support/portable_fd.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::testkit {

namespace {

[[maybe_unused]] int closeOnExec(int fd) {
    if (fd >= 0 && ::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

int withoutSigpipe(int fd) {
#if defined(SO_NOSIGPIPE)
    int on = 1;
    if (fd >= 0) {
        ::setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
    }
#endif
    return fd;
}

} // namespace

int openSocket(int domain, int type) {
#if defined(SOCK_CLOEXEC)
    return withoutSigpipe(::socket(domain, type | SOCK_CLOEXEC, 0));
#else
    return withoutSigpipe(closeOnExec(::socket(domain, type, 0)));
#endif
}

int acceptConnection(int listener) {
#if defined(__linux__)
    return ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
#else
    return withoutSigpipe(closeOnExec(::accept(listener, nullptr, nullptr)));
#endif
}

// A closed peer is reported as EPIPE instead of a signal.
static ssize_t sendQuietly(int fd, const void* data, std::size_t size) {
#if defined(MSG_NOSIGNAL)
    return ::send(fd, data, size, MSG_NOSIGNAL);
#else
    return ::send(fd, data, size, 0);
#endif
}

bool sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = sendQuietly(fd, bytes.data(), bytes.size());
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool receiveExactly(int fd, char* into, std::size_t size, const std::function<bool()>& giveUp) {
    while (size > 0) {
        if (giveUp()) {
            return false;
        }
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, 50) <= 0) {
            continue; // a timeout or EINTR: ask again; a broken descriptor ends in recv
        }
        const ssize_t count = ::recv(fd, into, size, 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        into += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// Binds `fd` to the IPv4 address `source`, if one is given.
bool bindTo(int fd, const char* source) {
    sockaddr_in from = loopback(0);
    return source == nullptr ||
           (::inet_pton(AF_INET, source, &from.sin_addr) == 1 &&
            ::bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from) == 0);
}

} // namespace

int listenOnLoopback(std::uint16_t port) {
    const int fd = openSocket(AF_INET, SOCK_STREAM);
    const int yes = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const sockaddr_in address = loopback(port);
    if (fd < 0 || ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd, 4) != 0) {
        ::close(fd); // close(-1) only fails with EBADF
        return -1;
    }
    return fd;
}

std::uint16_t localPort(int listener) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

int connectToLoopback(std::uint16_t port, const char* source) {
    const int fd = openSocket(AF_INET, SOCK_STREAM);
    const sockaddr_in address = loopback(port);
    if (fd < 0 || !bindTo(fd, source) ||
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

} // namespace halvo::testkit
