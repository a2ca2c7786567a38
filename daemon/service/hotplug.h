// How halvod follows hot-plug: the kernel's uevents where there are any,
// periodic rescans elsewhere.
#pragma once

#include "daemon/core/bus_monitor.h"

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <memory>

namespace halvo::daemon {

// The environment variable that turns uevents off ("none": rescan
// periodically), for containers whose network namespace gets none.
inline constexpr const char* kUeventFdVariable = "HALVOD_UEVENT_FD";

// The bus's change reports, or null (after saying why on standard error)
// when the caller must rescan every `fallbackPeriod` instead.
std::unique_ptr<BusMonitor> openHotplugEvents(boost::asio::io_context& io,
                                              std::chrono::milliseconds fallbackPeriod);

} // namespace halvo::daemon
