#include "daemon/service/hotplug.h"

#include "daemon/platform/bus_events.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace halvo::daemon {

namespace {

// Nothing: the kernel's own; a descriptor; or why the variable is unusable.
util::Expected<std::optional<int>> handedOverSocket(const char* setting) {
    if (setting == nullptr) {
        return std::optional<int>();
    }
    const std::string_view text(setting);
    int descriptor = -1;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), descriptor);
    if (error != std::errc() || end != text.data() + text.size() || descriptor < 0) {
        return util::Failure{std::string(kUeventFdVariable) + " is not a descriptor"};
    }
    return std::optional<int>(descriptor);
}

} // namespace

std::unique_ptr<BusMonitor> openHotplugEvents(boost::asio::io_context& io,
                                              std::chrono::milliseconds fallbackPeriod) {
    const char* setting = std::getenv(kUeventFdVariable);
    std::string problem;
    if (setting != nullptr && std::string_view(setting) == "none") {
        problem = std::string(kUeventFdVariable) + "=none";
    } else {
        auto socket = handedOverSocket(setting);
        if (!socket) {
            problem = socket.error();
        } else {
            auto events = openBusEvents(io, *socket);
            if (events) {
                return std::move(events).value();
            }
            problem = events.error();
        }
    }
    std::fprintf(stderr, "halvod: no uevents (%s): rescanning every %lld ms\n", problem.c_str(),
                 static_cast<long long>(fallbackPeriod.count()));
    return nullptr;
}

} // namespace halvo::daemon
