// Rule records -> canonical rule text.
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <cstdio>

namespace halvo::rules {

// Prints the "rules" array of the daemon's rule-list reply as rule text on
// `out`, one rule per line, prefixed "N: " when `numbered` is non-zero.
// Returns 0, or 5 after printing "Internal error.\n" (the reply carries a
// string "status") or "Rule list format error.\n" (no "rules" array) on
// stderr; nothing is written to `out` then.
int outputRuleList(const boost::json::object& reply, std::uint32_t numbered, std::FILE* out);

} // namespace halvo::rules
