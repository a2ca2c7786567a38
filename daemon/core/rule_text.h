// The daemon's use of the rule text: the form in which the rules file keeps
// the committed rules.  Printing and parsing are the rules library's; this
// only adapts them to strings.
#pragma once

#include "util/expected.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace halvo::daemon {

// One line per rule, without numbers; nothing if the printer refuses.
std::optional<std::string> printRuleText(const boost::json::array& rules);

// The records of `text`, or the parser's diagnostic ("Parsing error at rule
// #N"): the daemon reports it where it belongs, never on standard error.
util::Expected<boost::json::array> parseRuleText(std::string_view text);

// Done when printing the rule and parsing the line gives the same record;
// otherwise why not (the parser's diagnostic, or "it reads back as another
// record"). A value with a double quote, for instance, does not read back.
util::Expected<void> checkReadsBack(const boost::json::object& rule);

} // namespace halvo::daemon
