// monitor: listens for device and host events until the link ends.
#pragma once

#include "cli/command_context.h"

namespace halvo::cli {

// No request is sent: the daemon pushes the events on its own.
void installMonitor(CommandContext& context);

} // namespace halvo::cli
