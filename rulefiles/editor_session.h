// The editing loop of `rule edit`: editor, parser, and again until the text
// parses or the user gives up.
#pragma once

#include <boost/json/array.hpp>
#include <optional>
#include <string>

namespace halvo::rulefiles {

// Lets the user edit the rule text at `path` and returns the rule set it
// holds.  When the text does not parse (the parser has said why) asks
// "Edit again [y/n]? " and edits the very same text again on 'y'.  Returns
// nothing when the user gives up or the editor cannot be run; the file is
// never rewritten or deleted here, so it keeps the user's last text.
std::optional<boost::json::array> loadRulesFromEditor(const std::string& path);

} // namespace halvo::rulefiles
