// conn list, conn drop, conn kill: first request and replies.
#pragma once

#include "cli/session.h"

namespace halvo::cli {

void installConnectionList(Session& session);
// conn drop and conn kill share their reply handling.
void installConnectionDrop(Session& session);
void installConnectionKill(Session& session);

} // namespace halvo::cli
