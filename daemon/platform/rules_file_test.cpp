#include "daemon/core/rule_text.h"
#include "daemon/platform/rules_file.h"
#include "tests/support/daemon_harness.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace halvo::daemon {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using testkit::readFile;
using testkit::TempDir;
using testkit::writeFile;

std::vector<std::string> folderContents(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST(RulesFileTest, SavedRulesLoadBackTheSame) {
    TempDir scratch;
    const std::string path = (scratch / "rules").string();
    const std::string text =
        "share quick host \"a,b\" name is \"Key board\" !built-in hwid 046d:c31c "
        "serial \"S 1\" !port 1-2 class 03:01:02 override-name \"K\" takeaway\n"
        "block !rdesk\n";
    json::array rules = *parseRuleText(text);

    EXPECT_EQ(loadRulesFile(path).value(), json::array());
    RulesFile file(path);
    EXPECT_EQ(file.save(rules).outcome, RulesSaver::Outcome::saved);
    EXPECT_EQ(readFile(path), text);
    EXPECT_EQ(loadRulesFile(path).value(), rules);
    EXPECT_EQ(file.save(json::array()).outcome, RulesSaver::Outcome::saved);
    EXPECT_EQ(readFile(path), "");
    EXPECT_EQ(folderContents(scratch.path()), std::vector<std::string>{"rules"});
}

TEST(RulesFileTest, FilesAreNeverWiderThan0640) {
    TempDir scratch;
    const std::string path = (scratch / "rules").string();
    writeFile(path, "share\n");
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
    const mode_t umask = ::umask(0);
    const RulesSaver::Result saved = RulesFile(path).save(*parseRuleText("block\n"));
    ::umask(umask);
    ASSERT_EQ(saved.outcome, RulesSaver::Outcome::saved);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
}

// Before the rename nothing changes and the save failed; after it the new
// rules are the rules, and only their durability is in doubt.
TEST(RulesFileTest, FaultsBeforeAndAfterTheRename) {
    struct Fault {
        const char* step;
        int failingFsync; // 1: the file's, 2: the folder's; 0: none
        bool failRename;
        bool failOpenFolder;
        RulesSaver::Outcome outcome;
        const char* problemEnd;
        const char* fileAfter;
    };
    const Fault faults[] = {
        {"file sync", 1, false, false, RulesSaver::Outcome::notSaved, ": sync: Input/output error",
         "share\n"},
        {"rename", 0, true, false, RulesSaver::Outcome::notSaved, ": rename: Input/output error",
         "share\n"},
        {"open folder", 0, false, true, RulesSaver::Outcome::savedUnsynced,
         ": open folder: Input/output error", "block\n"},
        {"folder sync", 2, false, false, RulesSaver::Outcome::savedUnsynced,
         ": sync folder: Input/output error", "block\n"},
    };
    for (const Fault& fault : faults) {
        TempDir scratch;
        const std::string path = (scratch / "rules").string();
        writeFile(path, "share\n");
        int fsyncs = 0;
        RulesFileCalls calls = systemRulesFileCalls();
        const RulesFileCalls real = calls;
        calls.fsync = [&](int fd) {
            return ++fsyncs == fault.failingFsync ? (errno = EIO, -1) : real.fsync(fd);
        };
        if (fault.failRename) {
            calls.rename = [](const char*, const char*) { return errno = EIO, -1; };
        }
        if (fault.failOpenFolder) {
            calls.openFolder = [](const char*) { return errno = EIO, -1; };
        }
        const RulesSaver::Result saved =
            RulesFile(path, std::nullopt, calls).save(*parseRuleText("block\n"));
        EXPECT_EQ(saved.outcome, fault.outcome) << fault.step;
        EXPECT_TRUE(saved.problem.ends_with(fault.problemEnd))
            << fault.step << ": " << saved.problem;
        EXPECT_EQ(readFile(path), fault.fileAfter) << fault.step;
        EXPECT_EQ(folderContents(scratch.path()), std::vector<std::string>{"rules"}) << fault.step;
    }
}

TEST(RulesFileTest, FileThatCannotBeKeptIsRefusedUntouched) {
    TempDir scratch;
    const std::string path = (scratch / "rules").string();
    const std::pair<std::string, std::string> kCases[] = {
        // Located as halvo-rulecheck shows it.
        {"share\nshare share\n",
         path + ":2:7: rule #2: second action \"share\": a rule has exactly one of \"share\" or "
                "\"block\""},
        // Parses, but a name holding a quote would not survive the next save.
        {"share\nshare name is a\\\"b\n",
         path + ": invalid rule #2: it does not read back unchanged from rule text"},
    };
    for (const auto& [text, error] : kCases) {
        writeFile(path, text);
        auto loaded = loadRulesFile(path);
        ASSERT_FALSE(loaded.has_value()) << text;
        EXPECT_EQ(loaded.error(), error);
        EXPECT_EQ(readFile(path), text);
    }
}

TEST(RulesFileTest, LeftoverTemporariesAreRemovedAndNothingElse) {
    TempDir scratch;
    const std::string path = (scratch / "rules").string();
    for (const char* name :
         {"rules", ".rules.Ab12Cd", ".rules.zzzzzz", ".rules.bak", ".rules.1234567", "other"}) {
        writeFile(scratch / name, "x");
    }
    removeLeftoverTemporaries(path);
    EXPECT_EQ(folderContents(scratch.path()),
              (std::vector<std::string>{".rules.1234567", ".rules.bak", "other", "rules"}));
}

} // namespace
} // namespace halvo::daemon
