// A daemon peer for end-to-end tests: listens on a TCP port, accepts one
// connection, records every packet the utility sends and answers as the test
// scripts it, malformed packets and closes mid-packet included.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace halvo::testkit {

struct ReceivedPacket {
    std::uint32_t command = 0;
    std::string payload; // the JSON text as sent; empty for a bare header
};

// A packet header alone, for scripts that send malformed or partial packets.
std::string headerBytes(std::uint32_t command, std::uint32_t payloadSize);

// What a script can do to the connection. Every call writes at once.
class PeerConnection {
  public:
    explicit PeerConnection(int fd) : fd_(fd) {}

    // A well-formed packet.
    void send(std::uint32_t command, std::string_view json);
    void sendRaw(std::string_view bytes);
    // The bytes in pieces of `pieceSize`, with a pause between pieces.
    void sendInPieces(std::string_view bytes, std::size_t pieceSize,
                      std::chrono::microseconds pause = std::chrono::microseconds(200));
    // Closes the connection; the session ends.
    void close();
    bool closed() const { return fd_ < 0; }

  private:
    int fd_;
};

class ScriptedDaemon {
  public:
    using AcceptScript = std::function<void(PeerConnection&)>;
    using PacketScript = std::function<void(const ReceivedPacket&, PeerConnection&)>;

    // Port 0 takes any free port (see port()).
    explicit ScriptedDaemon(std::uint16_t port = 32999);
    ~ScriptedDaemon();
    ScriptedDaemon(const ScriptedDaemon&) = delete;
    ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;

    // Run when the connection is accepted, before anything is read.
    void onAccept(AcceptScript script) { acceptScript_ = std::move(script); }
    // Run for every packet received.
    void onPacket(PacketScript script) { packetScript_ = std::move(script); }

    // Binds and listens at once (so a client started after this returns
    // finds the port open), then serves one connection in a thread.
    void start();
    // Waits for the session to end (the peer closed, or the script did);
    // call it once the utility has ended.
    void join();

    std::vector<ReceivedPacket> received() const;
    // The port listened on, once started.
    std::uint16_t port() const { return port_; }

  private:
    void serve();
    void session(int fd);

    std::uint16_t port_;
    int listener_ = -1;
    std::thread thread_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> clientGone_{false};
    AcceptScript acceptScript_;
    PacketScript packetScript_;
    mutable std::mutex mutex_;
    std::vector<ReceivedPacket> received_;
};

} // namespace halvo::testkit
