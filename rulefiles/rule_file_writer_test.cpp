#include "rulefiles/rule_file_writer.h"
#include "tests/support/files.h"
#include "tests/support/process_runner.h"

#include <boost/json/parse.hpp>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace halvo::rulefiles {
namespace {

using testkit::runInChild;

const char* const kRuleList = R"({"rules": [{"action": "share"},
    {"action": "block", "rdesk": false, "name": "Keyboard", "nameMatch": "is",
     "vid": 1133, "pid": 49948, "rev": 272, "class": 3, "subclass": 1, "protocol": 2}]})";

TEST(Rules2File, FailuresLeaveNoFileBehind) {
    testkit::TempDir dir;
    struct Case {
        const char* name;
        std::string pathTemplate;
        const char* reply;
        const char* err;
        rlim_t sizeLimit;
    } cases[] = {
        {"no folder for the file", dir / "missing/tmp.XXXXXX", kRuleList,
         "Cannot create temporary file.\n", RLIM_INFINITY},
        {"a failure report", dir / "tmp.XXXXXX", R"({"status": "ok", "rules": []})",
         "Internal error.\nCannot create reopen file.\n", RLIM_INFINITY},
        // Room for the message but not for the rules: a copy cut short by a
        // full disk must not pass for the rule set.
        {"write error", dir / "tmp.XXXXXX", kRuleList, "Cannot create reopen file.\n", 40},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto run = runInChild([&] {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{c.sizeLimit, c.sizeLimit};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            return rules2file(boost::json::parse(c.reply).as_object(), c.pathTemplate) ? 0 : 1;
        });
        EXPECT_TRUE(finished(run, 1, "", c.err));
        EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    }
}

} // namespace
} // namespace halvo::rulefiles
