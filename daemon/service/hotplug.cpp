#include "daemon/service/hotplug.h"

#include "daemon/platform/bus_events.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace halvo::daemon {

std::unique_ptr<BusMonitor> openHotplugEvents(boost::asio::io_context& io,
                                              std::chrono::milliseconds fallbackPeriod) {
    const char* setting = std::getenv(kUeventFdVariable);
    std::string problem;
    if (setting != nullptr && std::string_view(setting) == "none") {
        problem = std::string(kUeventFdVariable) + "=none";
    } else {
        auto events = openBusEvents(io);
        if (events) {
            return std::move(events).value();
        }
        problem = events.error();
    }
    std::fprintf(stderr, "halvod: no uevents (%s): rescanning every %lld ms\n", problem.c_str(),
                 static_cast<long long>(fallbackPeriod.count()));
    return nullptr;
}

} // namespace halvo::daemon
