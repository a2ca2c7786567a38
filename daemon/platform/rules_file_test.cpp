#include "daemon/core/rule_text.h"
#include "daemon/platform/rules_file.h"
#include "tests/support/daemon_harness.h"

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

    EXPECT_EQ(std::get<json::array>(loadRulesFile(path)), json::array());
    EXPECT_EQ(saveRulesFile(path, rules), std::nullopt);
    EXPECT_EQ(readFile(path), text);
    EXPECT_EQ(std::get<json::array>(loadRulesFile(path)), rules);
    EXPECT_EQ(saveRulesFile(path, json::array()), std::nullopt);
    EXPECT_EQ(readFile(path), "");
    EXPECT_EQ(folderContents(scratch.path()), std::vector<std::string>{"rules"});
}

TEST(RulesFileTest, SaveKeepsTheFilesMode) {
    TempDir scratch;
    const std::string path = (scratch / "rules").string();
    writeFile(path, "share\n");
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    ASSERT_EQ(saveRulesFile(path, *parseRuleText("block\n")), std::nullopt);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST(RulesFileTest, FailedSaveLeavesNothingBehind) {
    TempDir scratch;
    // A folder where the file should be: the rename fails after the write.
    fs::create_directories(scratch / "rules" / "inside");
    auto error = saveRulesFile((scratch / "rules").string(), *parseRuleText("share\n"));
    ASSERT_TRUE(error);
    EXPECT_EQ(*error, (scratch / "rules").string() + ": rename: Is a directory");
    EXPECT_EQ(folderContents(scratch.path()), std::vector<std::string>{"rules"});

    error = saveRulesFile((scratch / "missing" / "rules").string(), json::array());
    ASSERT_TRUE(error);
    EXPECT_EQ(*error, (scratch / "missing" / "rules").string() +
                          ": create temporary file: No such file or directory");
}

TEST(RulesFileTest, FileThatCannotBeKeptIsRefusedUntouched) {
    TempDir scratch;
    const std::string path = (scratch / "rules").string();
    const std::pair<std::string, std::string> kCases[] = {
        {"share\nshare share\n", path + ": rules not loaded"},
        // Parses, but a name holding a quote would not survive the next save.
        {"share\nshare name is a\\\"b\n",
         path + ": invalid rule #2: it does not read back unchanged from rule text"},
    };
    for (const auto& [text, error] : kCases) {
        writeFile(path, text);
        auto loaded = loadRulesFile(path);
        ASSERT_EQ(loaded.index(), 1u) << text;
        EXPECT_EQ(std::get<std::string>(loaded), error);
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
