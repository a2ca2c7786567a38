// How halvod learns that the machine's USB bus changed: the kernel's
// uevents on Linux.  Where there are none, the caller falls back to
// periodic rescans.
#pragma once

#include "daemon/core/bus_monitor.h"
#include "util/expected.h"

#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>

namespace halvo::daemon {

// The kernel's uevents, read on `io`, or why this system has none.
util::Expected<std::unique_ptr<BusMonitor>> openBusEvents(boost::asio::io_context& io);

} // namespace halvo::daemon
