// monitor: listens for device and host events until the link ends.
#pragma once

#include "cli/session.h"

namespace halvo::cli {

// No request is sent: the daemon pushes the events on its own.
void installMonitor(Session& session);

} // namespace halvo::cli
