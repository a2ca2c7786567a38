// The connection that carries one USB/IP request and its reply, and then the
// device's traffic in the kernel.  PlainChannel is TCP as any USB/IP server
// speaks it; a TLS channel puts its session keys into the kernel socket
// before handOff(), so that everything after the reply stays encrypted.
#pragma once

#include "attach/endpoint.h"
#include "attach/vhci.h"
#include "usbip/reply_parser.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace halvo::attach {

class Channel {
  public:
    virtual ~Channel() = default;
    virtual util::Expected<Done> send(std::span<const std::uint8_t> bytes) = 0;
    // Reads at least one byte, at most `into.size()`; a closed connection is
    // a failure.
    virtual util::Expected<std::size_t> receive(std::span<std::uint8_t> into) = 0;
    // The socket to give the kernel, ready to carry the device's traffic.
    // The channel still owns it and closes it when destroyed; the kernel
    // keeps its own reference.
    virtual util::Expected<int> handOff() = 0;
};

// Opens a channel to a server, or says why it could not.
using Connector = std::function<util::Expected<std::unique_ptr<Channel>>(const Endpoint& server)>;

// Plain TCP with the time limit on connecting and on each read and write;
// the socket keeps TCP keepalive and a user timeout so that a dead server
// ends the attachment within about `deadAfter`.
Connector plainConnector(std::chrono::milliseconds timeout,
                         std::chrono::seconds deadAfter = std::chrono::seconds(30));

// A connected non-blocking TCP socket to `server` with that keepalive, or
// why there is none.  Shared by the plain and the TLS channel.
util::Expected<int> connectTcp(const Endpoint& server, std::chrono::milliseconds timeout,
                               std::chrono::seconds deadAfter);
// Whether `fd` became ready for `events` (poll's) within `timeout`.
bool waitReady(int fd, short events, std::chrono::milliseconds timeout);

inline constexpr std::chrono::seconds kReplyDeadline{30};

// Sends `request` and reads the reply of kind `expected`, or says what went
// wrong on the way (the server's own refusal is in the parser's status).
util::Expected<usbip::ReplyParser>
exchange(Channel& channel, const std::vector<std::uint8_t>& request, usbip::OpCode expected);

} // namespace halvo::attach
