// Gives an end-to-end test process the daemon's fixed port to itself.
#pragma once

#include <cstdint>

namespace halvo::testkit {

// Moves the calling process into a network namespace of its own with the
// loopback interface up (unshare of a user and a network namespace, so no
// privilege is needed); every child inherits it. Where namespaces are not
// available, takes a lock on the port shared by all test processes instead
// and holds it until the process ends. Must run before any thread starts.
// Returns true when a private namespace was entered. With `keepUsers`, root
// enters a network namespace only, so that its children can still switch to
// the machine's other users.
bool isolateDaemonPort(bool keepUsers = false);

// Whether a TCP connection to `port` on this machine is established, as the
// kernel lists them in /proc/net/tcp: the test process is alone on the port
// (see isolateDaemonPort), so it is the one the test started.
bool connectionEstablished(std::uint16_t port);

} // namespace halvo::testkit
