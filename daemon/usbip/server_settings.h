// The USB/IP front end's bounds and times, as halvod's options set them.
#pragma once

#include <chrono>
#include <cstddef>

namespace halvo::daemon::usbip {

struct ServerSettings {
    // How long a host has for its whole exchange: sending its request and
    // taking the reply.
    std::chrono::milliseconds requestTimeout{10000};
    // Connections of one host at once, while their requests are answered
    // (an IPv6 host counts by its /64 network, whose addresses are all
    // its own to take); more are turned away.
    std::size_t maxPerHost = 8;
    // Hosts served at once; a connection from another one is turned away.
    std::size_t maxHosts = 64;
    // Silence after which the kernel gives up on a shared connection.
    std::chrono::seconds deadPeerAfter{30};
    // How often shared devices are checked for hosts that detached.
    std::chrono::milliseconds detachPoll{1000};

    bool operator==(const ServerSettings&) const = default;
};

} // namespace halvo::daemon::usbip
