#include "tests/support/portable_fd.h"

#include <fcntl.h>
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

bool openPipe(int fds[2]) {
#if defined(__linux__)
    return ::pipe2(fds, O_CLOEXEC) == 0;
#else
    if (::pipe(fds) != 0) {
        return false;
    }
    if (::fcntl(fds[0], F_SETFD, FD_CLOEXEC) != 0 || ::fcntl(fds[1], F_SETFD, FD_CLOEXEC) != 0) {
        ::close(fds[0]);
        ::close(fds[1]);
        return false;
    }
    return true;
#endif
}

ssize_t sendQuietly(int fd, const void* data, std::size_t size) {
#if defined(MSG_NOSIGNAL)
    return ::send(fd, data, size, MSG_NOSIGNAL);
#else
    return ::send(fd, data, size, 0);
#endif
}

} // namespace halvo::testkit
