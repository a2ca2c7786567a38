// Plays the kernel's uevents for a daemon under test.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace halvo::testkit {

// The kernel's report that the USB device `busid` was added, removed ...:
// "ACTION@DEVPATH" and its fields, each ended by a NUL byte.
std::string usbUevent(const std::string& action, const std::string& busid);

// A netlink socket that hands uevents to the kernel, or -1.
int openUeventSender();

// Hands `uevent` to the kernel, which sends it as its own (sender port 0)
// to the uevent listeners of this network namespace.  Allowed only in a
// network namespace of one's own (see isolateDaemonPort).  The reason when
// the kernel refused it.
std::optional<std::string> sendThroughKernel(int sender, std::string_view uevent);

// Sends `uevent` from `sender` itself (not the kernel) to the listeners of
// the kernel's uevent group, as a process that poses as the kernel would.
// Needs a network namespace of one's own, too.
std::optional<std::string> sendAsProcess(int sender, std::string_view uevent);

} // namespace halvo::testkit
