// The rules file: the committed rule set kept as rule text.
//
// A save never leaves a half-written file: the text goes to a temporary file
// in the same folder, is synced, and replaces the old file by a rename, after
// which the folder is synced too. Killed at any moment, the daemon leaves
// either the old rules or the new ones behind. Once the rename has happened
// the new rules are the rules, even when the folder's sync then fails.
//
// Both files are created with mode 0640 (less the umask) and never widened:
// the rules say which devices are shared with whom, for root and the admin
// group to read.
#pragma once

#include "daemon/core/rule_store.h"
#include "util/expected.h"

#include <boost/json/array.hpp>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

namespace halvo::daemon {

// The rules in the file; an empty set when the file does not exist.  A file
// that does not parse gives "PATH:LINE:COLUMN: rule #N: why", as
// halvo-rulecheck shows it; one with a rule that could not be saved back
// unchanged gives "PATH: invalid rule #N: ..."; the file is not touched in
// either case.
util::Expected<boost::json::array> loadRulesFile(const std::string& path);

// Why the folder of `path` cannot take a rules file (it must exist and be
// writable), when it cannot.
util::Expected<void> checkRulesFolder(const std::string& path);

// Removes the temporary files that a save interrupted by a kill leaves in the
// file's folder.
void removeLeftoverTemporaries(const std::string& path);

// The system calls a save makes that can fail after the text is written;
// tests replace them to fail on purpose.
struct RulesFileCalls {
    std::function<int(int fd)> fsync;
    std::function<int(const char* from, const char* to)> rename;
    std::function<int(const char* folder)> openFolder;
};
RulesFileCalls systemRulesFileCalls();

class RulesFile final : public RulesSaver {
  public:
    // `group`: the group given the files, when there is one.
    explicit RulesFile(std::string path, std::optional<gid_t> group = std::nullopt,
                       RulesFileCalls calls = systemRulesFileCalls());

    Result save(const boost::json::array& rules) override;

  private:
    util::Expected<std::string> writeTemporary(std::string_view text);

    std::string path_;
    std::optional<gid_t> group_;
    RulesFileCalls calls_;
};

} // namespace halvo::daemon
