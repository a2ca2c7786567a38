// One client connection: cuts the byte stream into packets, hands each to
// its host, and sends replies and events in the order they are queued.
//
// A packet is bad when its payload size is above 100 MiB or its payload is
// not a JSON object; a request without payload (size 0) is read as an empty
// object.  A bad packet, the peer closing, an I/O error or a client that lets
// too much output pile up ends the session; the host hears of it once.
#pragma once

#include "link/packet.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/json/object.hpp>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

namespace halvo::daemon {

class Session;

class SessionHost {
  public:
    virtual void packetReceived(Session& session, std::uint32_t command,
                                boost::json::object payload) = 0;
    virtual void sessionEnded(Session& session) = 0;

  protected:
    ~SessionHost() = default;
};

class Session : public std::enable_shared_from_this<Session> {
  public:
    // Output a client may leave unread before it is dropped.
    static constexpr std::size_t kMaxQueuedBytes = 256u * 1024u * 1024u;

    Session(boost::asio::ip::tcp::socket socket, std::uint64_t id, SessionHost& host);

    void start();
    // Queues one encoded packet.
    void send(std::string packet);
    // Ends the session; the host's sessionEnded follows at once.
    void close();

    std::uint64_t id() const { return id_; }

  private:
    void readHeader();
    void readPayload(std::uint32_t command, std::uint32_t size);
    void deliver(std::uint32_t command);
    void writeNext();

    boost::asio::ip::tcp::socket socket_;
    std::uint64_t id_;
    SessionHost& host_;
    link::HeaderBytes header_{};
    std::string payload_;
    std::deque<std::string> outbox_;
    std::size_t queuedBytes_ = 0;
    bool closed_ = false;
};

} // namespace halvo::daemon
