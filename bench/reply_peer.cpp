#include "bench/reply_peer.h"

#include "link/packet.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::bench {

namespace {

bool readFully(int fd, unsigned char* into, std::size_t size) {
    std::size_t filled = 0;
    while (filled < size) {
        ssize_t count = read(fd, into + filled, size - filled);
        if (count <= 0) {
            return false;
        }
        filled += static_cast<std::size_t>(count);
    }
    return true;
}

bool writeFully(int fd, const std::string& bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        ssize_t count = send(fd, bytes.data() + written, bytes.size() - written, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        written += static_cast<std::size_t>(count);
    }
    return true;
}

// Waits for the client to close its end, so that the client's exit, not
// ours, ends every exchange.
void drainUntilClosed(int fd) {
    char scrap[256];
    while (read(fd, scrap, sizeof scrap) > 0) {
    }
}

} // namespace

std::unique_ptr<ReplyPeer> ReplyPeer::listen(std::uint16_t port, std::string& error) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = std::string("socket: ") + std::strerror(errno);
        return nullptr;
    }
    int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd, 8) != 0) {
        error = "cannot listen on 127.0.0.1:" + std::to_string(port) + ": " + std::strerror(errno);
        close(fd);
        return nullptr;
    }
    return std::unique_ptr<ReplyPeer>(new ReplyPeer(fd));
}

ReplyPeer::ReplyPeer(int listener)
    : listener_(listener), packet_(std::make_shared<std::string>()), thread_([this] { serve(); }) {}

ReplyPeer::~ReplyPeer() {
    // Wakes the blocked accept(), which then fails and ends the thread.
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
}

void ReplyPeer::setReply(std::string_view payload) {
    auto packet = std::make_shared<const std::string>(
        link::encodePacket(link::code(link::CommandCode::deviceList), payload));
    std::lock_guard lock(mutex_);
    packet_ = std::move(packet);
}

unsigned ReplyPeer::failedExchanges() const {
    std::lock_guard lock(mutex_);
    return failedExchanges_;
}

void ReplyPeer::serve() {
    for (;;) {
        int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            if (errno == EINTR || errno == ECONNABORTED) {
                continue;
            }
            return;
        }
        answer(connection);
        close(connection);
    }
}

void ReplyPeer::answer(int connection) {
    int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::shared_ptr<const std::string> packet;
    {
        std::lock_guard lock(mutex_);
        packet = packet_;
    }
    link::HeaderBytes request{};
    bool ok =
        readFully(connection, request.data(), request.size()) &&
        link::decodeHeader(request.data()).command == link::code(link::CommandCode::deviceList) &&
        writeFully(connection, *packet);
    if (ok) {
        drainUntilClosed(connection);
    } else {
        std::lock_guard lock(mutex_);
        ++failedExchanges_;
    }
}

} // namespace halvo::bench
