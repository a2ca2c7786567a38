#include "daemon/platform/rules_file.h"

#include "daemon/core/record_validation.h"
#include "daemon/core/rule_text.h"
#include "rules/rule_parser.h"
#include "util/json_file.h"
#include "util/unique_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace halvo::daemon {

namespace fs = std::filesystem;
namespace json = boost::json;

namespace {

constexpr std::string_view kTemporarySuffix = ".XXXXXX";
constexpr mode_t kFileMode = 0640;

fs::path folderOf(const std::string& path) {
    fs::path folder = fs::path(path).parent_path();
    return folder.empty() ? fs::path(".") : folder;
}

// ".NAME." then six characters from mkstemp: hidden, and recognisable as ours.
std::string temporaryPrefix(const std::string& path) {
    return "." + fs::path(path).filename().string() + ".";
}

std::string failure(const std::string& path, const char* step, int error) {
    return path + ": " + step + ": " + std::strerror(error);
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// "PATH:LINE:COLUMN: rule #N: why", the first line that halvo-rulecheck
// shows for the same file.
std::string describeParseError(const std::string& path, const rules::RuleTextDiagnostic& found) {
    if (found.line == 0) {
        return path + ": " + found.message;
    }
    std::string where =
        path + ":" + std::to_string(found.line) + ":" + std::to_string(found.column) + ": ";
    if (found.ruleNumber != 0) {
        where += "rule #" + std::to_string(found.ruleNumber) + ": ";
    }
    return where + found.message;
}

} // namespace

util::Expected<json::array> loadRulesFile(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 && errno == ENOENT) {
        return json::array();
    }
    auto bytes = util::readWholeFile(path);
    if (!bytes) {
        return util::Failure{bytes.error()};
    }
    rules::RuleTextReport parsed = rules::parseRuleTextDetailed(bytes.value());
    if (!parsed.records) {
        return util::Failure{describeParseError(path, *parsed.error)};
    }
    auto accepted = validateRuleSet(std::move(*parsed.records));
    if (!accepted) {
        return util::Failure{path + ": " + accepted.error()};
    }
    return accepted;
}

RulesFileCalls systemRulesFileCalls() {
    return RulesFileCalls{
        [](int fd) { return ::fsync(fd); },
        [](const char* from, const char* to) { return ::rename(from, to); },
        [](const char* folder) { return ::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC); },
    };
}

RulesFile::RulesFile(std::string path, std::optional<gid_t> group, RulesFileCalls calls)
    : path_(std::move(path)), group_(group), calls_(std::move(calls)) {}

RulesSaver::Result RulesFile::save(const json::array& rules) {
    auto text = printRuleText(rules);
    if (!text) {
        return {Outcome::notSaved, path_ + ": the rules cannot be printed as rule text"};
    }
    auto temporary = writeTemporary(*text);
    if (!temporary) {
        return {Outcome::notSaved, temporary.error()};
    }
    const std::string& name = temporary.value();
    if (calls_.rename(name.c_str(), path_.c_str()) != 0) {
        int renameErrno = errno;
        ::unlink(name.c_str());
        return {Outcome::notSaved, failure(path_, "rename", renameErrno)};
    }
    // From here on the new file is the rules file, whatever happens next.
    const fs::path folder = folderOf(path_);
    int fd = calls_.openFolder(folder.c_str());
    if (fd < 0) {
        return {Outcome::savedUnsynced, failure(folder.string(), "open folder", errno)};
    }
    int result = calls_.fsync(fd);
    int syncErrno = errno;
    ::close(fd);
    if (result != 0) {
        return {Outcome::savedUnsynced, failure(folder.string(), "sync folder", syncErrno)};
    }
    return {Outcome::saved, {}};
}

// Writes and syncs `text` into a new temporary file beside the rules file;
// its name, or why not.
util::Expected<std::string> RulesFile::writeTemporary(std::string_view text) {
    std::string name = (folderOf(path_) / temporaryPrefix(path_)).string();
    name.append(kTemporarySuffix.substr(1));
    int fd = util::makeUniqueFile(name, kFileMode);
    if (fd < 0) {
        return util::Failure{failure(path_, "create temporary file", errno)};
    }
    const char* step = nullptr;
    // The admin group may read the rules; a daemon that may not give the file
    // that group keeps it to its own.
    if (group_ && ::fchown(fd, static_cast<uid_t>(-1), *group_) != 0) {
        ::fchmod(fd, kFileMode & 0700);
    }
    if (!writeAll(fd, text)) {
        step = "write";
    } else if (calls_.fsync(fd) != 0) {
        step = "sync";
    }
    int stepErrno = errno;
    if (::close(fd) != 0 && step == nullptr) {
        step = "close";
        stepErrno = errno;
    }
    if (step != nullptr) {
        ::unlink(name.c_str());
        return util::Failure{failure(path_, step, stepErrno)};
    }
    return name;
}

util::Expected<void> checkRulesFolder(const std::string& path) {
    const fs::path folder = folderOf(path);
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
        return util::Failure{folder.string() +
                             ": the rules file's folder does not exist: create it, or give "
                             "--rules PATH, or --rules-in-memory"};
    }
    if (::access(folder.c_str(), W_OK | X_OK) != 0) {
        return util::Failure{
            failure(folder.string(), "the rules file's folder is not writable", errno)};
    }
    return {};
}

void removeLeftoverTemporaries(const std::string& path) {
    const std::string prefix = temporaryPrefix(path);
    const std::size_t nameLength = prefix.size() + kTemporarySuffix.size() - 1;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folderOf(path), error)) {
        const std::string name = entry.path().filename().string();
        if (name.size() == nameLength && name.starts_with(prefix) && entry.is_regular_file(error)) {
            fs::remove(entry.path(), error);
        }
    }
}

} // namespace halvo::daemon
