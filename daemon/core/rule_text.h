// The daemon's use of the rule text: the form in which the rules file keeps
// the committed rules.  Printing and parsing are the rules library's; this
// only adapts them to strings.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace halvo::daemon {

// One line per rule, without numbers; nothing if the printer refuses.
std::optional<std::string> printRuleText(const boost::json::array& rules);

// The records of `text`; nothing (after the parser's message on standard
// error, "Parsing error at rule #N") when it does not parse.
std::optional<boost::json::array> parseRuleText(std::string_view text);

// Whether printing the rule and parsing the line gives the same record; a
// value with a double quote, for instance, does not.
bool readsBackUnchanged(const boost::json::object& rule);

} // namespace halvo::daemon
