// Rule commands against a scripted daemon: request sequences, the records
// sent, every failure branch, and the editor session's file.
#include "tests/support/e2e.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace halvo::testkit {
namespace {

constexpr const char* kOk = R"({"status":"ok"})";
constexpr const char* kRuleList =
    R"({"rules":[{"action":"share","quick":true,"host":["10.0.0.5"]},)"
    R"({"action":"block","rdesk":false,"vid":1133,"pid":49948}]})";

TEST(RuleListTest, PrintsTheRulesNumberedOrNot) {
    Exchange numbered = runWithReplies({"rule"}, {{6, kOk}, {7, kRuleList}});
    EXPECT_EQ(numbered.run.out,
              "1: share quick host \"10.0.0.5\"\n2: block !rdesk hwid 046d:c31c\n");
    EXPECT_EQ(numbered.run.status, 0);
    EXPECT_EQ(describe(numbered.sent), (std::vector<std::string>{"6", "7"}));

    Exchange plain = runWithReplies({"rule", "list", "-N"}, {{6, kOk}, {7, kRuleList}});
    EXPECT_EQ(plain.run.out, "share quick host \"10.0.0.5\"\nblock !rdesk hwid 046d:c31c\n");
}

TEST(RuleListTest, StatusIsThePrintersAndTheTransactionIsNeverEnded) {
    Exchange failed = runWithReplies({"rule", "list"}, {{6, kOk}, {7, R"({"status":"ok"})"}});
    EXPECT_TRUE(finished(failed.run, 5, "", "Internal error.\n"));
    EXPECT_EQ(describe(failed.sent), (std::vector<std::string>{"6", "7"}));

    Exchange noRules = runWithReplies({"rule"}, {{6, kOk}, {7, "{}"}});
    EXPECT_TRUE(finished(noRules.run, 5, "", "Rule list format error.\n"));

    Exchange refused = runWithReplies({"rule"}, {{6, R"({"status":"busy"})"}});
    EXPECT_TRUE(finished(refused.run, 5, "", "Internal error.\n"));
    EXPECT_EQ(describe(refused.sent), (std::vector<std::string>{"6"}));
}

TEST(RuleLoadTest, SendsTheParsedRecordsAndCommits) {
    TempDir dir;
    std::string file = dir.write("rules", "# office\nshare host \"a, b\" name contains Key\n"
                                          "block !rdesk hwid 0x46d:c31c class 3::2 takeaway\n");
    Exchange exchange = runWithReplies({"rule", "load", file}, {{6, kOk}, {8, kOk}, {11, kOk}});
    EXPECT_TRUE(finished(exchange.run, 0, "", ""));
    EXPECT_EQ(describe(exchange.sent),
              (std::vector<std::string>{
                  "6",
                  R"(8 {"rules":[{"action":"share","host":["a","b"],"name":"Key",)"
                  R"("nameMatch":"contains"},{"action":"block","rdesk":false,"vid":1133,)"
                  R"("pid":49948,"class":3,"subclass":0,"protocol":2,"takeaway":true}]})",
                  R"(11 {"action":"commit"})"}));
}

TEST(RuleLoadTest, ReadsStandardInputAfterTheNotice) {
    RunOptions options;
    options.stdinData = "share\n";
    Exchange exchange = runWithReplies({"rule", "load"}, {{6, kOk}, {8, kOk}, {11, kOk}}, options);
    EXPECT_TRUE(finished(exchange.run, 0, "(reading from stdin. Press ^D to finish.)\n", ""));
    EXPECT_EQ(describe(exchange.sent)[1], R"(8 {"rules":[{"action":"share"}]})");

    options.stdinData = "";
    Exchange empty = runWithReplies({"rule", "load"}, {{6, kOk}, {8, kOk}, {11, kOk}}, options);
    EXPECT_EQ(empty.run.status, 0);
    EXPECT_EQ(describe(empty.sent)[1], R"(8 {"rules":[]})");
}

TEST(RuleLoadTest, RefusalsAtEachStepAreInternalErrors) {
    TempDir dir;
    std::string file = dir.write("rules", "share\n");
    const std::vector<std::vector<Reply>> scripts = {
        {{6, R"({"status":"notfound"})"}},
        {{6, kOk}, {8, R"({"status":"rule #1 refused"})"}},
        {{6, kOk}, {8, kOk}, {11, "{}"}},
    };
    for (const auto& script : scripts) {
        Exchange exchange = runWithReplies({"rule", "load", file}, script);
        EXPECT_TRUE(finished(exchange.run, 5, "", "Internal error.\n"));
        EXPECT_EQ(exchange.sent.size(), script.size()) << "no rollback and nothing more is sent";
    }
}

struct TestCase {
    std::vector<std::string> args;
    std::vector<Reply> replies;
    std::string out;
    std::string err;
    int status;
    std::vector<std::string> sent;
};

TEST(RuleTestTest, SequencesVerdictsAndStatuses) {
    // clang-format off
    const TestCase cases[] = {
        {{"rule", "test", "-h", "10.0.0.5", "3"}, {{6, kOk}, {10, R"j({"status":"ok","verdict":"share (rule #1)"})j"}}, "share (rule #1)\n", "", 0, {"6", R"(10 {"id":3,"type":"net","addr":"10.0.0.5"})"}},
        {{"rule", "test", "-h", "h", "-r", "3"}, {{6, kOk}, {10, R"({"status":"ok","verdict":"%s block"})"}}, "%s block\n", "", 0, {"6", R"(10 {"id":3,"type":"rdesk"})"}},
        {{"rule", "test", "-r", "3"}, {{6, kOk}, {10, R"({"status":"ok","verdict":"share\u0000 tail"})"}}, "share\n", "", 0, {"6", R"(10 {"id":3,"type":"rdesk"})"}},
        {{"rule", "test", "-r", "3"}, {{6, kOk}, {10, R"({"status":"notfound"})"}}, "", "Device has not been found.\n", 2, {"6", R"(10 {"id":3,"type":"rdesk"})"}},
        {{"rule", "test", "-r", "3"}, {{6, kOk}, {10, R"({"status":"ok"})"}}, "", "Internal error.\n", 5, {"6", R"(10 {"id":3,"type":"rdesk"})"}},
        {{"rule", "test", "-r", "3"}, {{6, R"({"status":"notfound"})"}}, "", "Device has not been found.\n", 2, {"6"}},
        {{"rule", "test", "-r", "3"}, {{6, "{}"}}, "", "Internal error.\n", 5, {"6"}},
    };
    // clang-format on
    for (const TestCase& c : cases) {
        Exchange exchange = runWithReplies(c.args, c.replies);
        EXPECT_TRUE(finished(exchange.run, c.status, c.out, c.err))
            << testing::PrintToString(c.args);
        EXPECT_EQ(describe(exchange.sent), c.sent) << testing::PrintToString(c.args);
    }
}

TEST(RuleTestTest, LoadsTheSetFirstAndNeverCommitsIt) {
    RunOptions options;
    options.stdinData = "block rdesk\n";
    Exchange exchange = runWithReplies(
        {"rule", "test", "-f", "-", "-r", "9"},
        {{6, kOk}, {8, kOk}, {10, R"j({"status":"ok","verdict":"block (rule #1)"})j"}}, options);
    EXPECT_TRUE(finished(exchange.run, 0, "block (rule #1)\n", ""));
    EXPECT_EQ(describe(exchange.sent),
              (std::vector<std::string>{"6", R"(8 {"rules":[{"action":"block","rdesk":true}]})",
                                        R"(10 {"id":9,"type":"rdesk"})"}));
}

// The editor session: VISUAL names a small script; the notice on stdout
// names the private copy.
class RuleEditTest : public ::testing::Test {
  protected:
    // Twelve random letters and digits: a name that still holds the
    // template's "XXXXXX" was only half filled in.
    static std::string editPathIn(const std::string& out) {
        std::smatch match;
        static const std::regex notice(
            R"re(In case of error the copy of rules is put into "(/tmp/tmp\.[A-Za-z0-9]{12})"\.)re");
        if (!std::regex_search(out, match, notice) ||
            match[1].str().find("XXXXXX") != std::string::npos) {
            return "";
        }
        return match[1].str();
    }

    RunOptions withEditor(const std::string& script, const std::string& answers = "") {
        RunOptions options;
        options.setEnv = {{"VISUAL", dir.write("editor", "#!/bin/sh\n" + script, 0755)}};
        options.stdinData = answers;
        return options;
    }

    TempDir dir;
};

TEST_F(RuleEditTest, EditedRulesAreLoadedCommittedAndTheCopyRemoved) {
    // The editor keeps what it was given (mode and text) and appends a rule.
    const std::string here = dir.path().string();
    RunOptions options = withEditor("stat -c %a \"$1\" > " + here + "/mode\ncp \"$1\" " + here +
                                    "/before\necho 'block name is \"Cam\"' >> \"$1\"\n");
    Exchange exchange =
        runWithReplies({"rule", "edit"}, {{6, kOk}, {7, kRuleList}, {8, kOk}, {11, kOk}}, options);
    std::string path = editPathIn(exchange.run.out);
    ASSERT_FALSE(path.empty()) << exchange.run.out;
    EXPECT_EQ(exchange.run.out, "In case of error the copy of rules is put into \"" + path +
                                    "\".\nSharing rules have been successfully updated.\n");
    EXPECT_EQ(exchange.run.status, 0);
    EXPECT_EQ(readFile(here + "/mode"), "600\n");
    EXPECT_EQ(readFile(here + "/before"),
              "share quick host \"10.0.0.5\"\nblock !rdesk hwid 046d:c31c\n");
    EXPECT_NE(access(path.c_str(), F_OK), 0) << "removed on success";
    EXPECT_EQ(describe(exchange.sent),
              (std::vector<std::string>{
                  "6", "7",
                  R"(8 {"rules":[{"action":"share","quick":true,"host":["10.0.0.5"]},)"
                  R"({"action":"block","rdesk":false,"vid":1133,"pid":49948},)"
                  R"({"action":"block","name":"Cam","nameMatch":"is"}]})",
                  R"(11 {"action":"commit"})"}));
}

TEST_F(RuleEditTest, UnparsableTextAsksAgainAndGivingUpKeepsTheText) {
    RunOptions options = withEditor("echo 'share sometimes' > \"$1\"\n", "\ny\nn\n");
    Exchange exchange = runWithReplies({"rule", "edit"}, {{6, kOk}, {7, kRuleList}}, options);
    std::string path = editPathIn(exchange.run.out);
    EXPECT_EQ(exchange.run.status, 5);
    EXPECT_EQ(exchange.run.err, "Parsing error at rule #1\nParsing error at rule #1\n");
    EXPECT_NE(exchange.run.out.find("Edit again [y/n]? Edit again [y/n]? "), std::string::npos)
        << "an empty line is passed over without a new prompt";
    EXPECT_EQ(readFile(path), "share sometimes\n");
    EXPECT_EQ(describe(exchange.sent), (std::vector<std::string>{"6", "7"}));
    unlink(path.c_str());
}

} // namespace
} // namespace halvo::testkit
