// Systems without the kernel's uevents: halvod rescans periodically.
#include "daemon/platform/bus_events.h"

namespace halvo::daemon {

util::Expected<std::unique_ptr<BusMonitor>> openBusEvents(boost::asio::io_context&) {
    return util::Failure{"uevents exist only on Linux"};
}

} // namespace halvo::daemon
