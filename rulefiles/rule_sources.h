// Where a rule set comes from: a file named on the command line or standard
// input.  Both are read whole before anything is parsed, so a bad rule set
// ends the run before the daemon is contacted.
#pragma once

#include <boost/json/array.hpp>
#include <optional>

namespace halvo::rulefiles {

// The rule set in the file at `path` (standard input when null): nothing when
// the text could not be loaded or parsed, after the loader or the parser has
// printed why.
std::optional<boost::json::array> load_rule_file(const char* path);

} // namespace halvo::rulefiles
