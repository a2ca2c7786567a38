// conn list, conn drop, conn kill: first request and replies.
#pragma once

#include "cli/command_context.h"

namespace halvo::cli {

void installConnectionList(CommandContext& context);
// conn drop and conn kill share their reply handling.
void installConnectionDrop(CommandContext& context);
void installConnectionKill(CommandContext& context);

} // namespace halvo::cli
