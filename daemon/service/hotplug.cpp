#include "daemon/service/hotplug.h"

#include "daemon/platform/bus_events.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace halvo::daemon {

namespace {

// Nothing: the kernel's own; a descriptor; or why the variable is unusable.
std::variant<std::optional<int>, std::string> handedOverSocket(const char* setting) {
    if (setting == nullptr) {
        return std::optional<int>();
    }
    const std::string_view text(setting);
    int descriptor = -1;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), descriptor);
    if (error != std::errc() || end != text.data() + text.size() || descriptor < 0) {
        return std::string(kUeventFdVariable) + " is not a descriptor";
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
        if (auto* error = std::get_if<std::string>(&socket)) {
            problem = *error;
        } else {
            auto events = openBusEvents(io, std::get<std::optional<int>>(socket));
            if (auto* monitor = std::get_if<std::unique_ptr<BusMonitor>>(&events)) {
                return std::move(*monitor);
            }
            problem = std::get<std::string>(events);
        }
    }
    std::fprintf(stderr, "halvod: no uevents (%s): rescanning every %lld ms\n", problem.c_str(),
                 static_cast<long long>(fallbackPeriod.count()));
    return nullptr;
}

} // namespace halvo::daemon
