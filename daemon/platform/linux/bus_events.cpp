#include "daemon/platform/bus_events.h"

#include "daemon/platform/linux/kernel_uevents.h"

namespace halvo::daemon {

util::Expected<std::unique_ptr<BusMonitor>> openBusEvents(boost::asio::io_context& io) {
    auto socket = openUeventSocket();
    if (!socket) {
        return util::Failure{socket.error()};
    }
    return std::make_unique<KernelUevents>(io, *socket, true);
}

} // namespace halvo::daemon
