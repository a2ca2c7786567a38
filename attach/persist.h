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
// any thread starts.  `tls` says whether `connect` puts the traffic in
// kernel TLS, for the records.  Returns the exit status: kOk after a stop
// signal, kUsage for a request that can never succeed.
int runPersistent(const Endpoint& server, const std::string& busId, const Connector& connect,
                  bool tls, VhciPorts& vhci, Records& records, std::ostream& log);

} // namespace halvo::attach
