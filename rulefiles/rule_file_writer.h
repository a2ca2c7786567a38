// The copy of the daemon's rules that `rule edit` hands to the editor.
#pragma once

#include <boost/json/object.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace halvo::rulefiles {

// Writes the rules of the daemon's rule-list `reply` as rule text without
// indexes into a new private file (mode 0600) made from "/tmp/tmp.XXXXXXXXXXXX",
// prints "In case of error the copy of rules is put into \"<path>\".\n" on
// stdout and returns the path.  The file is left for the caller to delete.
// On failure prints "Cannot create temporary file.\n" or
// "Cannot create reopen file.\n" to stderr (after the printer's own message
// when the reply was not a rule list), deletes any file it made and returns
// nothing.
std::optional<std::string> rules2file(const boost::json::object& reply);

// The same with another template (its trailing X's are replaced).
std::optional<std::string> rules2file(const boost::json::object& reply,
                                      std::string_view pathTemplate);

} // namespace halvo::rulefiles
