// dev list, dev unplug, dev share, dev block: first request and replies.
#pragma once

#include "cli/session.h"

namespace halvo::cli {

void installDeviceList(Session& session);
void installDeviceUnplug(Session& session);
// dev share and dev block: a rule transaction that inserts a rule for
// exactly that device and commits it.
void installDeviceRule(Session& session);

} // namespace halvo::cli
