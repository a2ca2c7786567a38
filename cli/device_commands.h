// dev list, dev unplug, dev share, dev block: first request and replies.
#pragma once

#include "cli/command_context.h"

namespace halvo::cli {

void installDeviceList(CommandContext& context);
void installDeviceUnplug(CommandContext& context);
// dev share and dev block: a rule transaction that inserts a rule for
// exactly that device and commits it.
void installDeviceShare(CommandContext& context);
void installDeviceBlock(CommandContext& context);

} // namespace halvo::cli
