#include "daemon/control/client_limits.h"

#include <algorithm>

namespace halvo::daemon {

ClientLimits fitToDescriptors(ClientLimits limits, std::size_t descriptors) {
    // A tiny allowance still serves some clients: half of it.
    const std::size_t room =
        descriptors > 2 * kDescriptorsKept ? descriptors - kDescriptorsKept : descriptors / 2;
    limits.maxClients = std::max<std::size_t>(1, std::min(limits.maxClients, room));
    return limits;
}

} // namespace halvo::daemon
