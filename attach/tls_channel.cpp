#include "attach/tls_channel.h"

#include "tls/connection.h"

#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <unistd.h>

namespace halvo::attach {

namespace {

class TlsChannel final : public Channel {
  public:
    TlsChannel(int fd, tls::Connection connection, std::chrono::milliseconds timeout)
        : fd_(fd), connection_(std::move(connection)), timeout_(timeout) {}
    ~TlsChannel() override {
        connection_.reset(); // sends nothing: the kernel may own the session
        ::close(fd_);
    }
    TlsChannel(const TlsChannel&) = delete;
    TlsChannel& operator=(const TlsChannel&) = delete;

    util::Expected<Done> handshake() {
        for (;;) {
            auto step = connection_->handshake();
            if (!step) {
                return util::Failure{step.error()};
            }
            if (*step == tls::Progress::done) {
                return Done{};
            }
            if (!waitFor(*step)) {
                return util::Failure{"TLS handshake: the server did not answer in time"};
            }
        }
    }

    util::Expected<Done> send(std::span<const std::uint8_t> bytes) override {
        while (!bytes.empty()) {
            auto sent = step([&] { return connection_->write(bytes); });
            if (!sent) {
                return util::Failure{sent.error()};
            }
            bytes = bytes.subspan(*sent);
        }
        return Done{};
    }

    util::Expected<std::size_t> receive(std::span<std::uint8_t> into) override {
        return step([&] { return connection_->read(into); });
    }

    util::Expected<int> handOff() override {
        if (auto ready = connection_->readyForKernel(); !ready) {
            return util::Failure{"will not give the device's traffic to the kernel in clear: " +
                                 ready.error()};
        }
        // The kernel owns the session's records from here on.
        connection_.reset();
        const int flags = ::fcntl(fd_, F_GETFL);
        if (flags < 0 || ::fcntl(fd_, F_SETFL, flags & ~O_NONBLOCK) < 0) {
            return util::Failure{"cannot make the socket blocking"};
        }
        return fd_;
    }

  private:
    bool waitFor(tls::Progress progress) const {
        return waitReady(fd_, progress == tls::Progress::wantRead ? POLLIN : POLLOUT, timeout_);
    }

    // Repeats a read or write until it moves bytes; the count moved.
    template <typename Attempt> util::Expected<std::size_t> step(Attempt attempt) {
        if (!connection_) {
            return util::Failure{"the connection belongs to the kernel"};
        }
        for (;;) {
            auto moved = attempt();
            if (!moved) {
                return util::Failure{moved.error()};
            }
            if (moved->progress == tls::Progress::done) {
                return moved->bytes;
            }
            if (!waitFor(moved->progress)) {
                return util::Failure{"the server did not answer in time"};
            }
        }
    }

    int fd_;
    std::optional<tls::Connection> connection_;
    std::chrono::milliseconds timeout_;
};

} // namespace

util::Expected<Connector> tlsConnector(const tls::Credentials& credentials,
                                       std::chrono::milliseconds timeout,
                                       std::chrono::seconds deadAfter) {
    auto made = tls::Context::create(tls::Role::client, credentials);
    if (!made) {
        return util::Failure{made.error()};
    }
    tls::Context context = std::move(made).value();
    return Connector([context, timeout, deadAfter](
                         const Endpoint& server) -> util::Expected<std::unique_ptr<Channel>> {
        auto fd = connectTcp(server, timeout, deadAfter);
        if (!fd) {
            return util::Failure{fd.error()};
        }
        auto connection = tls::Connection::create(context, *fd, server.host);
        if (!connection) {
            ::close(*fd);
            return util::Failure{connection.error()};
        }
        auto channel = std::make_unique<TlsChannel>(*fd, std::move(connection).value(), timeout);
        if (auto shaken = channel->handshake(); !shaken) {
            return util::Failure{"with " + server.text() + ": " + shaken.error()};
        }
        return std::unique_ptr<Channel>(std::move(channel));
    });
}

} // namespace halvo::attach
