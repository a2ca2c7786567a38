// The kernel's uevent messages (NETLINK_KOBJECT_UEVENT): a header
// "ACTION@DEVPATH" and then "KEY=VALUE" fields, each ended by a NUL byte.
// Only the reports of USB devices and their interfaces matter to halvod.
#pragma once

#include "daemon/core/bus_monitor.h"
#include "util/expected.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace halvo::daemon {

// The kernel's own messages stay far below this (its buffer is 2 KiB).
inline constexpr std::size_t kMaxUeventSize = 8192;

// The USB device change that `message` reports, or why it reports none.
// `senderPort` is the netlink port the message came from: the kernel's is
// 0, and anything else is refused (a process could pose as the kernel).
util::Expected<BusChange> parseUevent(std::string_view message, std::uint32_t senderPort);

} // namespace halvo::daemon
