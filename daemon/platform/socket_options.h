// The TCP options of a connection handed to the kernel for sharing: no
// Nagle delay for the small packets of the USB traffic, and keepalive probes
// with a limit on unacknowledged data, so that the kernel notices a host that
// crashed or lost its network and the share ends instead of holding the
// device for good.
#pragma once

#include "util/expected.h"

#include <chrono>
#include <string>

namespace halvo::daemon {

struct LinkWatch {
    // Silence before the first keepalive probe.
    std::chrono::seconds keepaliveIdle;
    std::chrono::seconds keepaliveInterval;
    // Unanswered probes that end the connection.
    int keepaliveProbes;
    // How long sent data may stay unacknowledged before the connection ends.
    std::chrono::seconds userTimeout;

    bool operator==(const LinkWatch&) const = default;
};

// The times that give up on a silent peer after about `deadAfter` (at least
// 6 s): probes start after a third of it and four probes fill the rest.
LinkWatch linkWatchFor(std::chrono::seconds deadAfter);

// Sets TCP_NODELAY, SO_KEEPALIVE with `watch`'s times and TCP_USER_TIMEOUT
// on the connected TCP socket `socket`; a system without one of the timing
// options goes without it. What failed, when something did.
util::Expected<void> prepareSharedSocket(int socket, const LinkWatch& watch);

} // namespace halvo::daemon
