// Whether a socket the kernel described is the client's own, and so names
// the client's local user.  The kernel's exact lookup by address pair does
// not only return the client's connected socket: for a pair it does not know
// it may describe a listener on the client's port, and for a client that has
// already closed a TIME_WAIT or FIN_WAIT2 remnant that carries no owner (it
// reads as root).  Only the client's own ESTABLISHED socket, on exactly the
// pair asked for, counts; anything else is an unknown user.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <optional>
#include <sys/types.h>

namespace halvo::daemon {

// TCP states as Linux's socket diagnostics number them.
enum class TcpState : std::uint8_t {
    established = 1,
    synSent,
    synReceived,
    finWait1,
    finWait2,
    timeWait,
    close,
    closeWait,
    lastAck,
    listen,
    closing,
    newSynReceived,
    boundInactive,
};

// A TCP socket's two ends as seen from the socket itself.
struct SocketEnds {
    boost::asio::ip::tcp::endpoint local;
    boost::asio::ip::tcp::endpoint remote;
};

// What the kernel said about one socket.
struct SocketReport {
    std::uint8_t state = 0;
    SocketEnds ends;
    uid_t uid = 0;
};

// The address as the kernel keeps it: an IPv4-mapped IPv6 address (an
// IPv4 client of an IPv6 socket) is the IPv4 one.
boost::asio::ip::address unmapped(const boost::asio::ip::address& address);

// Whether a client at `address` can be a local user at all: only loopback
// peers can (a host elsewhere has no user here, whatever its port).
bool mayBeLocalUser(const boost::asio::ip::address& address);

// The client's uid when `report` describes the client's own established
// socket on exactly the ends `asked` (the client's view: its address, then
// the daemon's), and the client is on a loopback address; nothing otherwise.
std::optional<uid_t> clientUid(const SocketEnds& asked, const SocketReport& report);

} // namespace halvo::daemon
