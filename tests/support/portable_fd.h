// Descriptors for test peers, made close-on-exec (so that the programs the
// tests start inherit none) and never raising SIGPIPE, on every system:
// Linux has flags for both, other systems get the same by fcntl and
// SO_NOSIGPIPE.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <sys/types.h>

namespace halvo::testkit {

int openSocket(int domain, int type);
int acceptConnection(int listener);

// Sends every byte; false once the peer has gone.
bool sendAll(int fd, std::string_view bytes);
// Reads exactly `size` bytes, asking `giveUp` between short waits; false at
// the end of the stream, on an error, or once given up.
bool receiveExactly(int fd, char* into, std::size_t size, const std::function<bool()>& giveUp);

// A TCP socket listening on 127.0.0.1:`port` (0: any free port), or -1.
int listenOnLoopback(std::uint16_t port);
// The port a listening socket has.
std::uint16_t localPort(int listener);
// A TCP connection to 127.0.0.1:`port` without Nagle's delay, or -1; from
// the loopback address `source` when one is given (127.0.0.2 stands for
// another host).
int connectToLoopback(std::uint16_t port, const char* source = nullptr);

} // namespace halvo::testkit
