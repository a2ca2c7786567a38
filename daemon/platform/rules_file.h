// The rules file: the committed rule set kept as rule text.
//
// A save never leaves a half-written file: the text goes to a temporary file
// in the same folder, is synced, and replaces the old file by a rename, after
// which the folder is synced too.  Killed at any moment, the daemon leaves
// either the old rules or the new ones behind.
#pragma once

#include <boost/json/array.hpp>
#include <optional>
#include <string>
#include <variant>

namespace halvo::daemon {

// The rules in the file; an empty set when the file does not exist.  A file
// that does not parse gives "PATH: rules not loaded" (the parser has printed
// the rule number on standard error), one with a rule that could not be
// saved back unchanged gives "PATH: invalid rule #N: ..."; the file is not
// touched in either case.
std::variant<boost::json::array, std::string> loadRulesFile(const std::string& path);

// Replaces the file's contents with `rules`; the reason on failure, with the
// old file left as it was.
std::optional<std::string> saveRulesFile(const std::string& path, const boost::json::array& rules);

// Removes the temporary files that a save interrupted by a kill leaves in the
// file's folder.
void removeLeftoverTemporaries(const std::string& path);

} // namespace halvo::daemon
