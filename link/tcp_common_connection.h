// The framed TCP transport, and its client side (QVTCPConnection).
//
// Owns one TCP connection and the serial event loop on which every
// completion and notification runs.  Received bytes reach
// parseProtocolPacket() in pieces whose size the parser chooses before each
// read (setNextPacketSize); exactly one receive is outstanding at a time, so
// pieces arrive in stream order and never concurrently.  Every handler holds
// only a weak reference to the object: a handler that finds it gone does
// nothing.
#pragma once

#include "link/logger.h"
#include "link/tcp_connection_protocol.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <shared_mutex>

namespace boost::asio {
class io_context;
}

namespace halvo::link {

namespace reason {
inline constexpr const char* cannotConnect = "connection cannot be established";
inline constexpr const char* stoppedByPeer = "connection stopped by peer";
inline constexpr const char* broken = "broken connection";
} // namespace reason

class QVTCPCommonConnection : public QVTCPConnectionProtocol,
                              public std::enable_shared_from_this<QVTCPCommonConnection> {
  public:
    QVTCPCommonConnection();
    ~QVTCPCommonConnection() override;
    QVTCPCommonConnection(const QVTCPCommonConnection&) = delete;
    QVTCPCommonConnection& operator=(const QVTCPCommonConnection&) = delete;

    // The socket and its peer, made by a subclass on this object's loop.
    struct Connection;

    // Runs the event loop on the calling thread until it runs out of work
    // (which the front end never lets happen: it ends the process from a
    // callback).  All notifications run inside this call.
    void runEventLoop();
    boost::asio::io_context& eventLoop() { return *recvq; }

    void stop() override;
    void waitConnection() override;
    void startProtocol() override;
    void stopProtocol(const char* reason) override;
    bool parseProtocolPacket(std::string_view piece) override;
    void sent() override;

    struct PacketSize {
        std::uint32_t min;
        std::uint32_t max;
    };
    // The bounds of the next receive, read together.
    PacketSize nextPacketSize() const;
    void setNextPacketSize(std::uint32_t size);
    void setNextPacketSizeMin(std::uint32_t min, std::uint32_t max);

    // Queues a copy of the bytes; sends made before the connection is ready
    // wait for it.  False when the bytes could not be queued.
    bool sendData(const void* bytes, std::uint64_t size);

  protected:
    // Makes a TCP socket with no-delay on this object's loop, aimed at a
    // numeric address and a port, and takes it as the connection. False
    // when the address is not numeric or no socket can be opened.
    bool initWithAddress(const char* host, std::uint16_t port, std::shared_ptr<Logger> logger);
    bool initWithConnection(std::unique_ptr<Connection> connection, std::shared_ptr<Logger> logger);
    // Starts connecting to the peer of `conn`; the outcome comes as
    // waitConnection() or startProtocol().
    void connect();
    void receiveData();

    Logger& log() { return *logger; }

  private:
    struct ReceivePiece;
    struct SendQueue;

    std::shared_ptr<QVTCPCommonConnection> self() { return shared_from_this(); }
    void readMore(std::shared_ptr<ReceivePiece> piece);
    void finishReceive(ReceivePiece& piece, bool peerClosed, bool failed);
    void writeNext();

    // Declared so that destruction runs in the reverse order: the loop last.
    std::unique_ptr<boost::asio::io_context> recvq;
    std::unique_ptr<Connection> conn;
    std::shared_ptr<Logger> logger;
    std::uint32_t pktSizeMin = 1;
    std::uint32_t pktSizeMax = 0xFFFFFFFFu;
    mutable std::shared_mutex pktSizeLock;
    std::unique_ptr<SendQueue> sendQueue;
};

// The connection halvoctl opens: to a numeric host address and a port.
class QVTCPConnection : public QVTCPCommonConnection {
  public:
    // Makes the connection object (no traffic yet). False, after logging
    // "cannot initialize TCP connection object", when no socket can be made
    // for that address.
    bool initWithString(const char* host, std::uint16_t port, std::shared_ptr<Logger> logger);

    // Starts connecting; always true.
    bool start() override;
};

} // namespace halvo::link
