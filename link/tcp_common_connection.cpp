#include "link/tcp_common_connection.h"

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <deque>
#include <mutex>
#include <string>

namespace halvo::link {

namespace asio = boost::asio;
using asio::ip::tcp;

struct QVTCPCommonConnection::Connection {
    Connection(asio::io_context& loop, tcp::endpoint endpoint) : socket(loop), peer(endpoint) {}
    tcp::socket socket;
    tcp::endpoint peer;
    bool ready = false;
};

// One receive: a buffer of the size asked for, filled by as many reads as
// the stream needs.
struct QVTCPCommonConnection::ReceivePiece {
    std::unique_ptr<char[]> data;
    std::size_t capacity = 0;
    std::size_t minimum = 0;
    std::size_t filled = 0;
};

struct QVTCPCommonConnection::SendQueue {
    std::deque<std::string> pending;
    bool writing = false;
};

namespace {

// When any amount is acceptable, one read takes at most this much.
constexpr std::size_t kOpenReadChunk = 64 * 1024;

} // namespace

QVTCPCommonConnection::QVTCPCommonConnection()
    // The loop serves this one connection from one thread: no locking inside.
    : recvq(std::make_unique<asio::io_context>(1)), sendQueue(std::make_unique<SendQueue>()) {}

QVTCPCommonConnection::~QVTCPCommonConnection() = default;

bool QVTCPCommonConnection::initWithAddress(const char* host, std::uint16_t port,
                                            std::shared_ptr<Logger> log) {
    boost::system::error_code error;
    asio::ip::address address = asio::ip::make_address(host, error);
    if (error) {
        return false;
    }
    auto connection = std::make_unique<Connection>(*recvq, tcp::endpoint(address, port));
    connection->socket.open(connection->peer.protocol(), error);
    if (error) {
        return false;
    }
    connection->socket.set_option(tcp::no_delay(true), error);
    return initWithConnection(std::move(connection), std::move(log));
}

bool QVTCPCommonConnection::initWithConnection(std::unique_ptr<Connection> connection,
                                               std::shared_ptr<Logger> log) {
    conn = std::move(connection);
    logger = std::move(log);
    setNextPacketSizeMin(1, 0xFFFFFFFFu);
    return true;
}

void QVTCPCommonConnection::runEventLoop() {
    recvq->run();
}

void QVTCPCommonConnection::connect() {
    std::weak_ptr<QVTCPCommonConnection> weak = weak_from_this();
    conn->socket.async_connect(conn->peer, [weak](const boost::system::error_code& error) {
        auto self = weak.lock();
        if (!self || error == asio::error::operation_aborted || !self->conn) {
            return; // cancelled by stop(): nothing to report
        }
        if (error == asio::error::connection_refused || error == asio::error::timed_out ||
            error == asio::error::network_unreachable || error == asio::error::host_unreachable) {
            self->waitConnection();
            return;
        }
        if (error) {
            self->stopProtocol(reason::cannotConnect);
            return;
        }
        self->conn->ready = true;
        self->writeNext(); // what was sent before the connection stood goes first
        self->startProtocol();
    });
}

void QVTCPCommonConnection::stop() {
    if (!conn) {
        return;
    }
    boost::system::error_code ignored;
    conn->socket.close(ignored);
    conn.reset();
    logger->info("<%p>: TCP connection stopped", static_cast<void*>(this));
}

void QVTCPCommonConnection::waitConnection() {
    stopProtocol(reason::cannotConnect);
}

void QVTCPCommonConnection::startProtocol() {
    receiveData();
}

void QVTCPCommonConnection::stopProtocol(const char* why) {
    if (why != nullptr) {
        logger->info("<%p>: %s", static_cast<void*>(this), why);
    }
}

bool QVTCPCommonConnection::parseProtocolPacket(std::string_view) {
    return true;
}

void QVTCPCommonConnection::sent() {}

QVTCPCommonConnection::PacketSize QVTCPCommonConnection::nextPacketSize() const {
    std::shared_lock lock(pktSizeLock);
    return {pktSizeMin, pktSizeMax};
}

void QVTCPCommonConnection::setNextPacketSize(std::uint32_t size) {
    setNextPacketSizeMin(size, size);
}

void QVTCPCommonConnection::setNextPacketSizeMin(std::uint32_t min, std::uint32_t max) {
    std::unique_lock lock(pktSizeLock);
    pktSizeMin = min;
    pktSizeMax = max;
}

void QVTCPCommonConnection::receiveData() {
    const auto [min, max] = nextPacketSize();
    if (!conn) {
        return;
    }
    auto piece = std::make_shared<ReceivePiece>();
    piece->minimum = std::max<std::size_t>(min, 1);
    // An exact size is read into a buffer of exactly that size, so the
    // parser can decode it in place.
    piece->capacity = min == max
                          ? piece->minimum
                          : std::max(piece->minimum, std::min<std::size_t>(max, kOpenReadChunk));
    // Left uninitialised (as make_unique_for_overwrite would, which older
    // libc++ lacks): the read fills it.
    piece->data = std::unique_ptr<char[]>(new char[piece->capacity]);
    readMore(std::move(piece));
}

void QVTCPCommonConnection::readMore(std::shared_ptr<ReceivePiece> piece) {
    if (!conn) {
        return;
    }
    std::weak_ptr<QVTCPCommonConnection> weak = weak_from_this();
    auto free = asio::buffer(piece->data.get() + piece->filled, piece->capacity - piece->filled);
    conn->socket.async_read_some(
        free, [weak, piece](const boost::system::error_code& error, std::size_t count) {
            auto self = weak.lock();
            if (!self) {
                return;
            }
            piece->filled += count;
            if (error) {
                self->finishReceive(*piece, error == asio::error::eof, error != asio::error::eof);
            } else if (piece->filled < piece->minimum) {
                self->readMore(piece);
            } else {
                self->finishReceive(*piece, false, false);
            }
        });
}

void QVTCPCommonConnection::finishReceive(ReceivePiece& piece, bool peerClosed, bool failed) {
    // The order matters: no content is a close by the peer even when an
    // error comes with it.
    if (piece.filled == 0) {
        stopProtocol(reason::stoppedByPeer);
        return;
    }
    if (failed) {
        stopProtocol(reason::broken);
        return;
    }
    if (!parseProtocolPacket(std::string_view(piece.data.get(), piece.filled))) {
        stopProtocol(reason::broken);
        return;
    }
    if (peerClosed) {
        stopProtocol(reason::stoppedByPeer);
        return;
    }
    receiveData();
}

bool QVTCPCommonConnection::sendData(const void* bytes, std::uint64_t size) {
    if (!conn) {
        logger->error("cannot create data for sending");
        return false;
    }
    sendQueue->pending.emplace_back(static_cast<const char*>(bytes),
                                    static_cast<std::size_t>(size));
    if (conn->ready && !sendQueue->writing) {
        writeNext();
    }
    return true;
}

void QVTCPCommonConnection::writeNext() {
    if (!conn || sendQueue->writing || sendQueue->pending.empty()) {
        return;
    }
    sendQueue->writing = true;
    std::weak_ptr<QVTCPCommonConnection> weak = weak_from_this();
    asio::async_write(conn->socket, asio::buffer(sendQueue->pending.front()),
                      [weak](const boost::system::error_code& error, std::size_t) {
                          auto self = weak.lock();
                          if (!self) {
                              return;
                          }
                          self->sendQueue->writing = false;
                          self->sendQueue->pending.pop_front();
                          if (error) {
                              self->stopProtocol(reason::broken);
                              return;
                          }
                          self->sent();
                          self->writeNext();
                      });
}

bool QVTCPConnection::initWithString(const char* host, std::uint16_t port,
                                     std::shared_ptr<Logger> connectionLogger) {
    if (!initWithAddress(host, port, connectionLogger)) {
        connectionLogger->error("cannot initialize TCP connection object");
        return false;
    }
    return true;
}

bool QVTCPConnection::start() {
    connect();
    return true;
}

} // namespace halvo::link
