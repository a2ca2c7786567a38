// How halvod learns that the machine's USB bus changed: the kernel's
// uevents on Linux.  Where there are none, the caller falls back to
// periodic rescans.
#pragma once

#include "daemon/core/bus_monitor.h"
#include "util/expected.h"

#include <boost/asio/io_context.hpp>
#include <memory>
#include <optional>
#include <string>

namespace halvo::daemon {

// The kernel's uevents, read on `io`, or why this system has none.  With
// `handedOver`, the messages come from that datagram socket (which the
// monitor then owns) instead of the kernel: tests and benchmarks play the
// kernel this way.
util::Expected<std::unique_ptr<BusMonitor>> openBusEvents(boost::asio::io_context& io,
                                                          std::optional<int> handedOver);

} // namespace halvo::daemon
