// Systems without the kernel's uevents: halvod rescans periodically.
#include "daemon/platform/bus_events.h"

namespace halvo::daemon {

std::variant<std::unique_ptr<BusMonitor>, std::string> openBusEvents(boost::asio::io_context&,
                                                                     std::optional<int>) {
    return std::string("uevents exist only on Linux");
}

} // namespace halvo::daemon
