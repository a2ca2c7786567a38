// A daemon peer for the whole-process benchmarks: listens on the loopback
// address and answers every device-list request with one prepared reply.
// Connections are served one after the other on a thread of its own, which
// matches the benchmarks: one client process at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace halvo::bench {

class ReplyPeer {
  public:
    // Listens on 127.0.0.1:port. Nothing, with the reason in `error`, when
    // the port cannot be had (taken by a daemon or a test peer, say).
    static std::unique_ptr<ReplyPeer> listen(std::uint16_t port, std::string& error);

    ~ReplyPeer();
    ReplyPeer(const ReplyPeer&) = delete;
    ReplyPeer& operator=(const ReplyPeer&) = delete;

    // The payload of the replies to come; set between client runs.
    void setReply(std::string_view payload);

    // Connections that did not end as a well-formed exchange: a request
    // other than the device list, or a reply that could not be written.
    unsigned failedExchanges() const;

  private:
    explicit ReplyPeer(int listener);
    void serve();
    void answer(int connection);

    int listener_;
    mutable std::mutex mutex_;
    std::shared_ptr<const std::string> packet_;
    unsigned failedExchanges_ = 0;
    std::thread thread_;
};

} // namespace halvo::bench
