// Descriptors for test peers, made close-on-exec (so that the programs the
// tests start inherit none) and never raising SIGPIPE, on every system:
// Linux has flags for both, other systems get the same by fcntl and
// SO_NOSIGPIPE.
#pragma once

#include <cstddef>
#include <sys/types.h>

namespace halvo::testkit {

int openSocket(int domain, int type);
int acceptConnection(int listener);
bool openPipe(int fds[2]);

// send(2) that reports a closed peer as EPIPE instead of a signal.
ssize_t sendQuietly(int fd, const void* data, std::size_t size);

} // namespace halvo::testkit
