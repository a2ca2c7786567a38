// What the daemon accepts as a rule record: the records the rule text parser
// produces, and nothing that the rules file could not store.
#pragma once

#include "util/expected.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <string>

namespace halvo::daemon {

// Done when `rule` keeps the record's invariants: known keys only, each of
// its type ("action" "share" or "block"; numbers 0 to 65535; negation keys and
// "quick" only true), "nameMatch" exactly with "name", each negation key only
// with its group, "pid" only after "vid" and "rev" only after "pid" (the same
// for "class", "subclass", "protocol"), never "host" with "rdesk".
// Otherwise the first broken invariant, e.g. "\"pid\" without \"vid\"".
util::Expected<void> validateRule(const boost::json::object& rule);

// The record as the daemon keeps it: "takeaway": false means the same as no
// "takeaway", and the rule text has no way to write it, so it is dropped.
boost::json::object canonicalRule(boost::json::object rule);

// The rules in their kept form when every element is a valid record that
// reads back unchanged from its rule text; otherwise "invalid rule #N:
// <reason>" for the first that is not. When a record does not read back,
// `readBack` (if given) gets why: the rule parser's diagnostic, for the log.
util::Expected<boost::json::array> validateRuleSet(boost::json::array rules,
                                                   std::string* readBack = nullptr);

} // namespace halvo::daemon
