// Rule text -> rule records.
//
// The text is bytes and a length: it may hold NUL bytes (a NUL ends a line)
// and need not end with a line feed.  A rule set is loaded whole or not at
// all: on the first failing rule the parser prints one message to standard
// error and returns nothing.
#pragma once

#include <boost/json/array.hpp>

#include <optional>
#include <string_view>

namespace halvo::rules {

// The rule records of `text`, in text order (possibly none); nothing after
// printing "Parsing error at rule #N\n" (or a memory message) to stderr.
//
// The records share one arena, records.storage(), which lives as long as any
// of them: moving the array keeps it, while storing the array into a JSON
// container made on another storage copies every record.
std::optional<boost::json::array> rule_parser_run(std::string_view text);

} // namespace halvo::rules
