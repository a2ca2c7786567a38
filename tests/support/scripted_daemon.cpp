#include "tests/support/scripted_daemon.h"

#include "link/packet.h"
#include "tests/support/portable_fd.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::testkit {

std::string headerBytes(std::uint32_t command, std::uint32_t payloadSize) {
    const link::HeaderBytes bytes = link::encodeHeader({command, payloadSize});
    return std::string(bytes.begin(), bytes.end());
}

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
    for (bool pending = false; !pending;) {
        const bool gone = clientGone_; // read first: a connection made before it is queued
        pollfd entry{listener_, POLLIN, 0};
        pending = ::poll(&entry, 1, 50) > 0;
        if (stopping_ || (!pending && gone)) {
            return;
        }
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
        if (!receiveExactly(fd, header, sizeof header, [this] { return stopping_.load(); })) {
            break;
        }
        link::PacketHeader decoded =
            link::decodeHeader(reinterpret_cast<const unsigned char*>(header));
        ReceivedPacket packet;
        packet.command = decoded.command;
        packet.payload.resize(decoded.size);
        if (decoded.size > 0 && !receiveExactly(fd, packet.payload.data(), decoded.size,
                                                [this] { return stopping_.load(); })) {
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
