#include "daemon/platform/rules_file.h"

#include "daemon/core/record_validation.h"
#include "daemon/core/rule_text.h"
#include "util/json_file.h"

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
constexpr mode_t kNewFileMode = 0644;

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

// Keeps the mode of the file being replaced, so that a save does not widen
// or narrow who may read the rules.
mode_t modeFor(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
        return status.st_mode & 07777;
    }
    return kNewFileMode;
}

std::optional<std::string> syncFolder(const fs::path& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return failure(folder.string(), "open folder", errno);
    }
    int result = ::fsync(fd);
    int syncErrno = errno;
    ::close(fd);
    if (result != 0) {
        return failure(folder.string(), "sync folder", syncErrno);
    }
    return std::nullopt;
}

// Writes and syncs `text` into a new temporary file beside `path`; its name.
std::variant<std::string, std::string> writeTemporary(const std::string& path,
                                                      std::string_view text) {
    std::string name = (folderOf(path) / temporaryPrefix(path)).string();
    name.append(kTemporarySuffix.substr(1));
    int fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0) {
        return std::variant<std::string, std::string>(
            std::in_place_index<1>, failure(path, "create temporary file", errno));
    }
    const char* step = nullptr;
    if (::fchmod(fd, modeFor(path)) != 0) {
        step = "set mode";
    } else if (!writeAll(fd, text)) {
        step = "write";
    } else if (::fsync(fd) != 0) {
        step = "sync";
    }
    int stepErrno = errno;
    if (::close(fd) != 0 && step == nullptr) {
        step = "close";
        stepErrno = errno;
    }
    if (step != nullptr) {
        ::unlink(name.c_str());
        return std::variant<std::string, std::string>(std::in_place_index<1>,
                                                      failure(path, step, stepErrno));
    }
    return std::variant<std::string, std::string>(std::in_place_index<0>, std::move(name));
}

} // namespace

std::variant<json::array, std::string> loadRulesFile(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 && errno == ENOENT) {
        return json::array();
    }
    auto bytes = util::readWholeFile(path);
    if (bytes.index() == 1) {
        return std::get<1>(bytes);
    }
    auto rules = parseRuleText(std::get<0>(bytes));
    if (!rules) {
        return path + ": rules not loaded";
    }
    auto accepted = validateRuleSet(std::move(*rules));
    if (auto* error = std::get_if<std::string>(&accepted)) {
        return path + ": " + *error;
    }
    return std::get<json::array>(std::move(accepted));
}

std::optional<std::string> saveRulesFile(const std::string& path, const json::array& rules) {
    auto text = printRuleText(rules);
    if (!text) {
        return path + ": the rules cannot be printed as rule text";
    }
    auto temporary = writeTemporary(path, *text);
    if (temporary.index() == 1) {
        return std::get<1>(temporary);
    }
    const std::string& name = std::get<0>(temporary);
    if (::rename(name.c_str(), path.c_str()) != 0) {
        int renameErrno = errno;
        ::unlink(name.c_str());
        return failure(path, "rename", renameErrno);
    }
    return syncFolder(folderOf(path));
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
