// What halvod tells the service manager (systemd) and takes from it: state
// notifications, the listening sockets of socket activation, and the
// journal.  Built without libsystemd, notifications do nothing, no socket is
// passed and there is no journal.
#pragma once

#include "daemon/core/activity_log.h"
#include "util/expected.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace halvo::daemon::service_manager {

// Each says nothing when no service manager listens (no NOTIFY_SOCKET).
void notifyReady(std::string_view status);
void notifyStatus(std::string_view status);
// Followed by notifyReady once the reload is done.
void notifyReloading();
void notifyStopping();

// Listening TCP sockets passed by socket activation, by their
// FileDescriptorName: "control" (or no name) for the halvo protocol,
// "usbip" for the USB/IP server, "usbip-tls" for its TLS port.
struct ActivatedSockets {
    std::optional<int> control;
    std::optional<int> usbip;
    std::optional<int> usbipTls;
};

// The sockets passed to this process (none without socket activation), or
// what is wrong with them: a name the daemon does not know, two of one
// name, or a descriptor that is no listening TCP socket.  Clears the
// activation's environment, so that no child takes them too.
util::Expected<ActivatedSockets> takeActivatedSockets();

// The journal, when this build has it and standard error is the journal's
// stream (JOURNAL_STREAM names it): records keep their fields there.
std::shared_ptr<LogSink> journalSinkIfConnected();

} // namespace halvo::daemon::service_manager
