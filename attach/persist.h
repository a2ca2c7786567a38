// attach --persist: attaches the device and keeps it attached, trying again
// (see Reattach) when the port goes free, and detaches it on SIGTERM, SIGINT
// or SIGHUP.  One log line per attempt and per change.
#pragma once

#include "attach/importer.h"
#include "attach/records.h"

#include <ostream>
#include <string>

namespace halvo::attach {

// Blocks the stop signals (the loop waits for them), so it must run before
// any thread starts.  Returns the exit status: kOk after a stop signal, kUsage for a request
// that can never succeed.
int runPersistent(const Endpoint& server, const std::string& busId, const Connector& connect,
                  VhciPorts& vhci, Records& records, std::ostream& log);

} // namespace halvo::attach
