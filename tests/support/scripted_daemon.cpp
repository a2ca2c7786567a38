#include "tests/support/scripted_daemon.h"

#include "link/packet.h"
#include "tests/support/portable_fd.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::testkit {

namespace {

// Waits for the descriptor to become readable, watching the stop flag.
bool waitReadable(int fd, const std::atomic<bool>& stopping) {
    while (!stopping) {
        pollfd entry{fd, POLLIN, 0};
        int ready = ::poll(&entry, 1, 50);
        if (ready > 0) {
            return true;
        }
        if (ready < 0 && errno != EINTR) {
            return false;
        }
    }
    return false;
}

// Reads exactly `size` bytes; false at the end of the stream or on stop.
bool readExactly(int fd, char* out, std::size_t size, const std::atomic<bool>& stopping) {
    std::size_t filled = 0;
    while (filled < size) {
        if (!waitReadable(fd, stopping)) {
            return false;
        }
        ssize_t count = ::recv(fd, out + filled, size - filled, 0);
        if (count <= 0) {
            if (count < 0 && errno == EINTR) {
                continue;
            }
            return false;
        }
        filled += static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace

void PeerConnection::send(std::uint32_t command, std::string_view json) {
    sendRaw(link::encodePacket(command, json));
}

void PeerConnection::sendRaw(std::string_view bytes) {
    if (fd_ >= 0) {
        sendAll(fd_, bytes); // a utility that has gone is judged by its outcome
    }
}

void PeerConnection::sendInPieces(std::string_view bytes, std::size_t pieceSize,
                                  std::chrono::microseconds pause) {
    while (!bytes.empty() && fd_ >= 0) {
        std::size_t size = std::min(pieceSize, bytes.size());
        sendRaw(bytes.substr(0, size));
        bytes.remove_prefix(size);
        std::this_thread::sleep_for(pause);
    }
}

void PeerConnection::close() {
    if (fd_ >= 0) {
        ::shutdown(fd_, SHUT_RDWR);
        ::close(fd_);
        fd_ = -1;
    }
}

ScriptedDaemon::ScriptedDaemon(std::uint16_t port) : port_(port) {}

ScriptedDaemon::~ScriptedDaemon() {
    stopping_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    if (listener_ >= 0) {
        ::close(listener_);
    }
}

void ScriptedDaemon::start() {
    listener_ = listenOnLoopback(port_);
    if (listener_ < 0) {
        throw std::runtime_error("scripted daemon cannot listen on its port");
    }
    port_ = localPort(listener_);
    thread_ = std::thread([this] { serve(); });
}

void ScriptedDaemon::join() {
    // The utility has ended: a connection it made is already queued, so
    // waiting for one that never came can stop.
    clientGone_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

std::vector<ReceivedPacket> ScriptedDaemon::received() const {
    std::lock_guard lock(mutex_);
    return received_;
}

void ScriptedDaemon::serve() {
    bool pending = false;
    while (!pending && !stopping_) {
        bool gone = clientGone_;
        pollfd entry{listener_, POLLIN, 0};
        pending = ::poll(&entry, 1, 50) > 0;
        if (!pending && gone) {
            return;
        }
    }
    if (!pending) {
        return;
    }
    int fd = acceptConnection(listener_);
    if (fd < 0) {
        return;
    }
    int yes = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    session(fd);
}

void ScriptedDaemon::session(int fd) {
    PeerConnection peer(fd);
    if (acceptScript_) {
        acceptScript_(peer);
    }
    while (!peer.closed()) {
        char header[link::kHeaderSize];
        if (!readExactly(fd, header, sizeof header, stopping_)) {
            break;
        }
        link::PacketHeader decoded =
            link::decodeHeader(reinterpret_cast<const unsigned char*>(header));
        ReceivedPacket packet;
        packet.command = decoded.command;
        packet.payload.resize(decoded.size);
        if (decoded.size > 0 && !readExactly(fd, packet.payload.data(), decoded.size, stopping_)) {
            break;
        }
        {
            std::lock_guard lock(mutex_);
            received_.push_back(packet);
        }
        if (packetScript_) {
            packetScript_(packet, peer);
        }
    }
    peer.close();
}

} // namespace halvo::testkit
