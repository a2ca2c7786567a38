// halvo-attach's exit statuses, one per kind of failure, so that scripts and
// the persistent service can tell a refusal from a broken network.
#pragma once

namespace halvo::attach {

enum ExitStatus : int {
    kOk = 0,
    // The server answered and refused (no such device, busy, device error).
    kRefused = 1,
    // The command line is wrong.
    kUsage = 2,
    // No server reached, or it broke the protocol.
    kNetwork = 3,
    // This machine: no vhci-hcd, no free port, no permission, no state folder.
    kLocal = 4,
};

} // namespace halvo::attach
