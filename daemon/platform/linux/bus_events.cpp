#include "daemon/platform/bus_events.h"

#include "daemon/platform/linux/kernel_uevents.h"

#include <fcntl.h>
#include <sys/socket.h>

namespace halvo::daemon {

namespace {

int socketOption(int socket, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    if (::getsockopt(socket, SOL_SOCKET, option, &value, &size) != 0) {
        return -1;
    }
    return value;
}

} // namespace

util::Expected<std::unique_ptr<BusMonitor>> openBusEvents(boost::asio::io_context& io,
                                                          std::optional<int> handedOver) {
    if (!handedOver) {
        auto socket = openUeventSocket();
        if (!socket) {
            return util::Failure{socket.error()};
        }
        return std::make_unique<KernelUevents>(io, *socket, true);
    }
    // Message boundaries must survive: a stream would run reports together.
    const int type = socketOption(*handedOver, SO_TYPE);
    if (type != SOCK_DGRAM && type != SOCK_SEQPACKET) {
        return util::Failure{"descriptor " + std::to_string(*handedOver) +
                             " is not a datagram socket"};
    }
    ::fcntl(*handedOver, F_SETFD, FD_CLOEXEC);
    const bool netlink = socketOption(*handedOver, SO_DOMAIN) == AF_NETLINK;
    return std::make_unique<KernelUevents>(io, *handedOver, netlink);
}

} // namespace halvo::daemon
