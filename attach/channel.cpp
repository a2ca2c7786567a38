#include "attach/channel.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::attach {

namespace {

class PlainChannel final : public Channel {
  public:
    PlainChannel(int fd, std::chrono::milliseconds timeout) : fd_(fd), timeout_(timeout) {}
    ~PlainChannel() override { ::close(fd_); }
    PlainChannel(const PlainChannel&) = delete;
    PlainChannel& operator=(const PlainChannel&) = delete;

    util::Expected<Done> send(std::span<const std::uint8_t> bytes) override {
        while (!bytes.empty()) {
            if (!ready(POLLOUT)) {
                return util::Failure{"the server took no data in time"};
            }
            const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent < 0 && errno != EINTR && errno != EAGAIN) {
                return util::Failure{std::string("sending failed: ") + std::strerror(errno)};
            }
            bytes = bytes.subspan(sent > 0 ? static_cast<std::size_t>(sent) : 0);
        }
        return Done{};
    }

    util::Expected<std::size_t> receive(std::span<std::uint8_t> into) override {
        for (;;) {
            if (!ready(POLLIN)) {
                return util::Failure{"the server did not answer in time"};
            }
            const ssize_t got = ::recv(fd_, into.data(), into.size(), 0);
            if (got > 0) {
                return static_cast<std::size_t>(got);
            }
            if (got == 0) {
                return util::Failure{"the server closed the connection"};
            }
            if (errno != EINTR && errno != EAGAIN) {
                return util::Failure{std::string("receiving failed: ") + std::strerror(errno)};
            }
        }
    }

    util::Expected<int> handOff() override {
        // The kernel reads and writes the socket with blocking calls.
        const int flags = ::fcntl(fd_, F_GETFL);
        if (flags < 0 || ::fcntl(fd_, F_SETFL, flags & ~O_NONBLOCK) < 0) {
            return util::Failure{std::string("socket: ") + std::strerror(errno)};
        }
        return fd_;
    }

  private:
    bool ready(short events) const { return waitReady(fd_, events, timeout_); }

    int fd_;
    std::chrono::milliseconds timeout_;
};

void keepAlive(int fd, std::chrono::seconds deadAfter) {
    const int on = 1;
    const int idle = static_cast<int>(std::max<long>(deadAfter.count() / 3, 1));
    const int count = 3;
    const int interval = std::max(idle / count, 1);
    const unsigned userTimeout = static_cast<unsigned>(deadAfter.count()) * 1000U;
    // Best effort: without them a dead server is noticed later, not never.
    ::setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof idle);
    ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof interval);
    ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &count, sizeof count);
    ::setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &userTimeout, sizeof userTimeout);
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// One connection attempt to one address, bounded by `timeout`.
int connectOne(const addrinfo& address, std::chrono::milliseconds timeout, int& error) {
    const int fd =
        ::socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = errno;
        return -1;
    }
    if (::connect(fd, address.ai_addr, address.ai_addrlen) == 0) {
        return fd;
    }
    if (errno == EINPROGRESS) {
        pollfd entry{fd, POLLOUT, 0};
        if (::poll(&entry, 1, static_cast<int>(timeout.count())) > 0) {
            socklen_t size = sizeof error;
            ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
            if (error == 0) {
                return fd;
            }
        } else {
            error = ETIMEDOUT;
        }
    } else {
        error = errno;
    }
    ::close(fd);
    return -1;
}

} // namespace

bool waitReady(int fd, short events, std::chrono::milliseconds timeout) {
    pollfd entry{fd, events, 0};
    int result = 0;
    do {
        result = ::poll(&entry, 1, static_cast<int>(timeout.count()));
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

util::Expected<int> connectTcp(const Endpoint& server, std::chrono::milliseconds timeout,
                               std::chrono::seconds deadAfter) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string port = std::to_string(server.port);
    const int lookup = ::getaddrinfo(server.host.c_str(), port.c_str(), &hints, &found);
    if (lookup != 0) {
        return util::Failure{"cannot find " + server.host + ": " + ::gai_strerror(lookup)};
    }
    int error = 0;
    int fd = -1;
    for (const addrinfo* address = found; address != nullptr && fd < 0;
         address = address->ai_next) {
        fd = connectOne(*address, timeout, error);
    }
    ::freeaddrinfo(found);
    if (fd < 0) {
        return util::Failure{"cannot connect to " + server.text() + ": " + std::strerror(error)};
    }
    keepAlive(fd, deadAfter);
    return fd;
}

Connector plainConnector(std::chrono::milliseconds timeout, std::chrono::seconds deadAfter) {
    return
        [timeout, deadAfter](const Endpoint& server) -> util::Expected<std::unique_ptr<Channel>> {
            auto fd = connectTcp(server, timeout, deadAfter);
            if (!fd) {
                return util::Failure{fd.error()};
            }
            return std::unique_ptr<Channel>(std::make_unique<PlainChannel>(*fd, timeout));
        };
}

util::Expected<usbip::ReplyParser>
exchange(Channel& channel, const std::vector<std::uint8_t>& request, usbip::OpCode expected) {
    if (auto sent = channel.send(request); !sent) {
        return util::Failure{sent.error()};
    }
    usbip::ReplyParser parser(expected);
    std::array<std::uint8_t, usbip::kDeviceRecordSize> scratch{};
    // A server that trickles its reply byte by byte must not hold the
    // importer for long: the whole reply has one deadline.
    const auto deadline = std::chrono::steady_clock::now() + kReplyDeadline;
    while (parser.missing() > 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            return util::Failure{"the server did not send its whole reply within " +
                                 std::to_string(kReplyDeadline.count()) + " seconds"};
        }
        // Never more than the reply lacks: after an import the rest is the
        // device's traffic, the kernel's to read.
        auto got = channel.receive(std::span(scratch).first(parser.missing()));
        if (!got) {
            return util::Failure{got.error()};
        }
        parser.feed(std::span(scratch).first(*got));
    }
    if (!parser.error().empty()) {
        return util::Failure{"the server broke the USB/IP protocol: " + parser.error()};
    }
    return parser;
}

} // namespace halvo::attach
