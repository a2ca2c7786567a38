// Rule commands against a scripted daemon: request sequences, the records
// sent, every failure branch, and the editor session's file.
#include "tests/support/e2e.h"

#include <gtest/gtest.h>
#include <optional>
#include <regex>
#include <unistd.h>

namespace halvo::testkit {
namespace {

constexpr const char* kOk = R"({"status":"ok"})";
constexpr const char* kRuleList =
    R"({"rules":[{"action":"share","quick":true,"host":["10.0.0.5"]},)"
    R"({"action":"block","rdesk":false,"vid":1133,"pid":49948}]})";

struct RuleCase {
    std::vector<std::string> args;
    std::vector<Reply> replies;
    std::string out;
    std::string err;
    int status;
    std::vector<std::string> sent;
    std::optional<std::string> input = std::nullopt; // standard input
};

// rule list, load and test: the requests in order, the records sent, the
// output and status for each reply. A transaction is never ended on failure
// (no rollback), and `rule test` never commits the set it loads.
TEST(RuleCommandsTest, SequencesRecordsAndStatuses) {
    TempDir dir;
    const std::string rules =
        dir.write("rules", "# office\nshare host \"a, b\" name contains Key\n"
                           "block !rdesk hwid 0x46d:c31c class 3::2 takeaway\n");
    const std::string share = dir.write("share", "share\n");
    const std::string notice = "(reading from stdin. Press ^D to finish.)\n";
    const std::string loadShare = R"(8 {"rules":[{"action":"share"}]})";
    const std::string commit = R"(11 {"action":"commit"})";
    const std::string testRdesk = R"(10 {"id":3,"type":"rdesk"})";
    // clang-format off
    const RuleCase cases[] = {
        {{"rule"}, {{6, kOk}, {7, kRuleList}}, "1: share quick host \"10.0.0.5\"\n2: block !rdesk hwid 046d:c31c\n", "", 0, {"6", "7"}},
        {{"rule", "list", "-N"}, {{6, kOk}, {7, kRuleList}}, "share quick host \"10.0.0.5\"\nblock !rdesk hwid 046d:c31c\n", "", 0, {"6", "7"}},
        // The list's status is the printer's.
        {{"rule"}, {{6, kOk}, {7, "{}"}}, "", "Rule list format error.\n", 5, {"6", "7"}},
        {{"rule"}, {{6, R"({"status":"busy"})"}}, "", "Internal error.\n", 5, {"6"}},
        {{"rule", "load", rules}, {{6, kOk}, {8, kOk}, {11, kOk}}, "", "", 0,
         {"6", R"(8 {"rules":[{"action":"share","host":["a","b"],"name":"Key","nameMatch":"contains"},)"
               R"({"action":"block","rdesk":false,"vid":1133,"pid":49948,"class":3,"subclass":0,"protocol":2,"takeaway":true}]})", commit}},
        {{"rule", "load"}, {{6, kOk}, {8, kOk}, {11, kOk}}, notice, "", 0, {"6", loadShare, commit}, "share\n"},
        {{"rule", "load"}, {{6, kOk}, {8, kOk}, {11, kOk}}, notice, "", 0, {"6", R"(8 {"rules":[]})", commit}, ""},
        // A refusal at each step ends the run; nothing more is sent.
        {{"rule", "load", share}, {{6, R"({"status":"notfound"})"}}, "", "Internal error.\n", 5, {"6"}},
        {{"rule", "load", share}, {{6, kOk}, {8, R"({"status":"rule #1 refused"})"}}, "", "Internal error.\n", 5, {"6", loadShare}},
        {{"rule", "load", share}, {{6, kOk}, {8, kOk}, {11, "{}"}}, "", "Internal error.\n", 5, {"6", loadShare, commit}},
        {{"rule", "test", "-h", "%s%n%x%p%%", "3"}, {{6, kOk}, {10, R"j({"status":"ok","verdict":"share (rule #1)"})j"}}, "share (rule #1)\n", "", 0, {"6", R"(10 {"id":3,"type":"net","addr":"%s%n%x%p%%"})"}},
        {{"rule", "test", "-h", "h", "-r", "3"}, {{6, kOk}, {10, R"({"status":"ok","verdict":"%s block"})"}}, "%s block\n", "", 0, {"6", testRdesk}},
        {{"rule", "test", "-r", "3"}, {{6, kOk}, {10, R"({"status":"ok","verdict":"share\u0000 tail"})"}}, "share\n", "", 0, {"6", testRdesk}},
        {{"rule", "test", "-r", "3"}, {{6, kOk}, {10, R"({"status":"notfound"})"}}, "", "Device has not been found.\n", 2, {"6", testRdesk}},
        {{"rule", "test", "-r", "3"}, {{6, kOk}, {10, kOk}}, "", "Internal error.\n", 5, {"6", testRdesk}},
        // A status that is not text is a failure.
        {{"rule", "test", "-r", "3"}, {{6, kOk}, {10, R"({"status":true,"verdict":"v"})"}}, "", "Internal error.\n", 5, {"6", testRdesk}},
        {{"rule", "test", "-r", "3"}, {{6, R"({"status":"notfound"})"}}, "", "Device has not been found.\n", 2, {"6"}},
        {{"rule", "test", "-f", "-", "-r", "3"}, {{6, kOk}, {8, kOk}, {10, R"j({"status":"ok","verdict":"block (rule #1)"})j"}}, "block (rule #1)\n", "", 0,
         {"6", R"(8 {"rules":[{"action":"block","rdesk":true}]})", testRdesk}, "block rdesk\n"},
    };
    // clang-format on
    for (const RuleCase& c : cases) {
        RunOptions options;
        options.stdinData = c.input;
        Exchange exchange = runWithReplies(c.args, c.replies, options);
        EXPECT_TRUE(finished(exchange.run, c.status, c.out, c.err))
            << testing::PrintToString(c.args);
        EXPECT_EQ(describe(exchange.sent), c.sent) << testing::PrintToString(c.args);
    }
}

// The editor session: VISUAL names a small script that keeps what it was
// given (mode and text) and appends a rule; the notice on stdout names the
// private copy, twelve random letters and digits (a name that still holds the
// template's "XXXXXX" was only half filled in).
TEST(RuleEditTest, EditedRulesAreLoadedCommittedAndTheCopyRemoved) {
    TempDir dir;
    const std::string here = dir.path().string();
    RunOptions options;
    options.setEnv = {
        {"VISUAL", dir.write("editor",
                             "#!/bin/sh\nstat -c %a \"$1\" > " + here + "/mode\ncp \"$1\" " + here +
                                 "/before\necho 'block name is \"Cam\"' >> \"$1\"\n",
                             0755)}};
    Exchange exchange =
        runWithReplies({"rule", "edit"}, {{6, kOk}, {7, kRuleList}, {8, kOk}, {11, kOk}}, options);
    std::smatch match;
    const std::regex notice(
        R"re(^In case of error the copy of rules is put into "(/tmp/tmp\.[A-Za-z0-9]{12})"\.\n)re");
    ASSERT_TRUE(std::regex_search(exchange.run.out, match, notice)) << exchange.run.out;
    const std::string path = match[1].str();
    EXPECT_EQ(path.find("XXXXXX"), std::string::npos);
    EXPECT_TRUE(finished(exchange.run, 0,
                         match[0].str() + "Sharing rules have been successfully updated.\n", ""));
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

} // namespace
} // namespace halvo::testkit
