// rule list, rule load, rule edit, rule test: rule transactions.
#pragma once

#include "cli/session.h"

namespace halvo::cli {

// Reads and parses the rule set of `rule load` or `rule test -f` before the
// daemon is contacted; exits with status 5 when it cannot be loaded (the
// loader or the parser has said why).
boost::json::array prepareRuleSet(const RuleSource& source);

void installRuleList(Session& session);
void installRuleLoad(Session& session);
void installRuleEdit(Session& session);
void installRuleTest(Session& session);

} // namespace halvo::cli
