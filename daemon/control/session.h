// One client connection: cuts the byte stream into packets, hands each to
// its host, and sends replies and events in the order they are queued.
//
// A packet is bad when its payload size is above 100 MiB or its payload is
// not a JSON object (or would take more memory than allowed once parsed); a
// request without payload (size 0) is read as an empty object. A bad packet,
// the peer closing, an I/O error or a client that leaves too much output
// unread ends the session; the host hears of it once.
//
// Memory stays bounded: the client is not read while its replies are unsent
// (backpressure), or before its request is answered; payload and output
// bytes are taken from a budget that all sessions share, a payload's as its
// bytes arrive (never as its header announces them); a payload that has not
// arrived in full within ClientLimits::payloadTimeout ends the session. A
// large payload is parsed off the event loop.
#pragma once

#include "daemon/control/client_limits.h"
#include "daemon/platform/off_loop_worker.h"
#include "link/packet.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/json/object.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

namespace halvo::daemon {

class Session;

// Bytes held by all sessions for payloads being received and unsent output.
class MemoryBudget {
  public:
    explicit MemoryBudget(std::size_t limit) : limit_(limit) {}
    // Payloads take the budget piece by piece, so two could each hold half
    // and wait for each other for ever: the first payload that has to wait
    // gets the turn and may go past the limit (by one payload at most) until
    // it gives the turn back.
    bool tryTake(std::size_t bytes, std::uint64_t taker);
    void endTurn(std::uint64_t taker);
    void take(std::size_t bytes) { used_ += bytes; }
    void give(std::size_t bytes) { used_ -= bytes; }
    bool exceeded() const { return used_ > limit_; }
    std::size_t used() const { return used_; }

  private:
    std::size_t limit_;
    std::size_t used_ = 0;
    std::optional<std::uint64_t> turn_;
};

class SessionHost {
  public:
    virtual void packetReceived(Session& session, std::uint32_t command,
                                boost::json::object payload) = 0;
    virtual void sessionEnded(Session& session) = 0;
    // Where sessions parse large payloads.
    virtual OffLoopWorker& worker() = 0;

  protected:
    ~SessionHost() = default;
};

class Session : public std::enable_shared_from_this<Session> {
  public:
    Session(boost::asio::ip::tcp::socket socket, std::uint64_t id, SessionHost& host,
            const ClientLimits& limits, MemoryBudget& budget);
    ~Session();

    // Serves requests.
    void start();
    // Queues one encoded packet; a reply is always queued, an event drops a
    // client that leaves too much unread. The reply to the request under way
    // lets the session read the next one.
    void send(std::string packet, bool isReply = false);
    std::size_t unsentBytes() const { return queuedBytes_; }
    // Ends the session; the host's sessionEnded follows at once.
    void close(const char* reason = nullptr);

    std::uint64_t id() const { return id_; }
    std::optional<uid_t> uid() const { return uid_; }
    void setUid(std::optional<uid_t> uid) { uid_ = uid; }
    bool mayChange() const { return mayChange_; }
    void setMayChange(bool mayChange) { mayChange_ = mayChange; }
    std::chrono::steady_clock::time_point lastHeard() const { return lastHeard_; }
    const boost::asio::ip::tcp::endpoint& peer() const { return peer_; }

  private:
    void readHeader();
    void startPayload(std::uint32_t command, std::uint32_t size);
    void readPayloadPiece(std::uint32_t command, std::uint32_t size);
    void deliver(std::uint32_t command);
    void handOver(std::uint32_t command, link::DecodedPayload decoded);
    void readNextRequest();
    void writeNext();
    void resumeReading();
    void log(const char* reason) const;

    boost::asio::ip::tcp::socket socket_;
    boost::asio::ip::tcp::endpoint peer_;
    std::uint64_t id_;
    SessionHost& host_;
    const ClientLimits& limits_;
    MemoryBudget& budget_;
    boost::asio::steady_timer budgetRetry_;
    boost::asio::steady_timer payloadDeadline_;
    std::optional<uid_t> uid_;
    bool mayChange_ = false;
    link::HeaderBytes header_{};
    std::string payload_;
    std::size_t payloadBudget_ = 0;
    std::deque<std::string> outbox_;
    std::size_t queuedBytes_ = 0;
    std::chrono::steady_clock::time_point lastHeard_ = std::chrono::steady_clock::now();
    bool readPaused_ = false;
    bool receivingPayload_ = false;
    bool awaitingReply_ = false;
    bool largeRequest_ = false;
    bool closed_ = false;
};

} // namespace halvo::daemon
