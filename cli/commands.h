// The commands' installers: each puts the onConnected callback that sends the
// command's first request, and the onData callback that reads the replies,
// on the context's client. The command table names one per command.
#pragma once

#include "cli/command_context.h"

namespace halvo::cli {

// dev list, dev unplug, dev share, dev block.
void installDeviceList(CommandContext& context);
void installDeviceUnplug(CommandContext& context);
// dev share and dev block: a rule transaction that inserts a rule for
// exactly that device and commits it.
void installDeviceShare(CommandContext& context);
void installDeviceBlock(CommandContext& context);

// conn list, conn drop, conn kill.
void installConnectionList(CommandContext& context);
// conn drop and conn kill share their reply handling.
void installConnectionDrop(CommandContext& context);
void installConnectionKill(CommandContext& context);

// rule list, rule load, rule edit, rule test: rule transactions.
void installRuleList(CommandContext& context);
void installRuleLoad(CommandContext& context);
void installRuleEdit(CommandContext& context);
void installRuleTest(CommandContext& context);
// Reads and parses the rule set of `rule load` or `rule test -f` before the
// daemon is contacted; exits with status 5 when it cannot be loaded (the
// loader or the parser has said why).
boost::json::array prepareRuleSet(const RuleSource& source);

// monitor: listens for device and host events until the link ends. No
// request is sent: the daemon pushes the events on its own.
void installMonitor(CommandContext& context);

} // namespace halvo::cli
