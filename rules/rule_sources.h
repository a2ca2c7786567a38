// Where a rule set comes from: a file named on the command line or standard
// input.  Both are read whole before anything is parsed, so a bad rule set
// ends the run before the daemon is contacted.
#pragma once

#include <boost/json/array.hpp>
#include <optional>
#include <string>

namespace halvo::rules {

// The whole content of the file at `path`, or of standard input when `path`
// is null, as raw bytes (possibly empty; nothing is decoded).  On failure
// prints "Error loading <label> from stdin.\n" or
// "Error loading <label> from <path>.\n" to stderr and returns nothing.  A
// directory, an unreadable file and a path that is not valid UTF-8 all fail.
std::optional<std::string> load_any_file(const char* path, const char* label);

// The rule set in the file at `path` (standard input when null): nothing when
// the text could not be loaded or parsed, after the loader or the parser has
// printed why.
std::optional<boost::json::array> load_rule_file(const char* path);

} // namespace halvo::rules
