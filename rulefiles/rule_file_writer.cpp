#include "rulefiles/rule_file_writer.h"

#include "rules/rule_printer.h"
#include "util/unique_file.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace halvo::rulefiles {
namespace {

constexpr std::string_view kEditFileTemplate = "/tmp/tmp.XXXXXXXXXXXX";

// One message for a stream that cannot be opened and a copy that cannot be
// written: either way the user has no copy to edit.
void discardCopy(const std::string& path) {
    ::unlink(path.c_str());
    std::fputs("Cannot create reopen file.\n", stderr);
}

// A copy cut short by a full disk would be edited and loaded as if it were
// the whole rule set, so write errors count as a failed copy.
bool writeRules(const boost::json::object& reply, std::FILE* stream) {
    if (rules::outputRuleList(reply, 0, stream) != 0)
        return false;
    return std::fflush(stream) == 0 && !std::ferror(stream);
}

} // namespace

std::optional<std::string> rules2file(const boost::json::object& reply) {
    return rules2file(reply, kEditFileTemplate);
}

std::optional<std::string> rules2file(const boost::json::object& reply,
                                      std::string_view pathTemplate) {
    std::string path(pathTemplate);
    const int fd = util::makeUniqueFile(path);
    if (fd < 0) {
        std::fputs("Cannot create temporary file.\n", stderr);
        return std::nullopt;
    }
    std::FILE* stream = ::fdopen(fd, "w");
    if (stream == nullptr) {
        ::close(fd);
        discardCopy(path);
        return std::nullopt;
    }
    if (!writeRules(reply, stream)) {
        std::fclose(stream);
        discardCopy(path);
        return std::nullopt;
    }
    std::fclose(stream);
    std::fprintf(stdout, "In case of error the copy of rules is put into \"%s\".\n", path.c_str());
    return path;
}

} // namespace halvo::rulefiles
