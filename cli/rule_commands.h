// rule list, rule load, rule edit, rule test: rule transactions.
#pragma once

#include "cli/command_context.h"

namespace halvo::cli {

// Reads and parses the rule set of `rule load` or `rule test -f` before the
// daemon is contacted; exits with status 5 when it cannot be loaded (the
// loader or the parser has said why).
boost::json::array prepareRuleSet(const RuleSource& source);

void installRuleList(CommandContext& context);
void installRuleLoad(CommandContext& context);
void installRuleEdit(CommandContext& context);
void installRuleTest(CommandContext& context);

} // namespace halvo::cli
