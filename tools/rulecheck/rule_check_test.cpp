#include "tests/support/files.h"
#include "tests/support/finished_run.h"
#include "tests/support/stream_capture.h"
#include "tools/rulecheck/rule_check.h"

#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using halvo::rulecheck::checkRuleText;
using halvo::rulecheck::runRuleCheck;
using halvo::rulecheck::Warnings;
using halvo::testkit::finished;
using halvo::testkit::RunResult;
using namespace std::string_view_literals;

// Collects what `body(out, err)` writes on the two streams.
template <class Body> RunResult capture(Body body) {
    using halvo::testkit::printedBy;
    RunResult run;
    run.out = printedBy([&](std::FILE* out) {
        run.err = printedBy([&](std::FILE* err) { run.status = body(out, err); });
    });
    return run;
}

RunResult check(std::string_view text) {
    return capture([text](std::FILE* out, std::FILE* err) {
        return checkRuleText("r.rules", text, Warnings::allowed, out, err);
    });
}

struct ErrorCase {
    std::string_view text;
    std::string_view report; // everything on stderr
};

// Each error shows where (physical line and byte column of the word at
// fault, counted in the file as written), which rule, and why.
TEST(RuleCheckTest, ErrorsPointAtTheWordAndSayWhy) {
    // clang-format off
    const ErrorCase cases[] = {
        {"share\n  Share quick\n", "r.rules:2:3: rule #2: unknown clause word \"Share\"\n  Share quick\n  ^\n"},
        {"share host a block\n", "r.rules:1:14: rule #1: second action \"block\": a rule has exactly one of \"share\" or \"block\"\nshare host a block\n             ^\n"},
        {"!share\n", "r.rules:1:2: rule #1: negated action: \"share\" cannot be negated with \"!\"\n!share\n ^\n"},
        {"block !quick\n", "r.rules:1:8: rule #1: \"quick\" cannot be negated with \"!\"\nblock !quick\n       ^\n"},
        {"share !override-name x\n", "r.rules:1:8: rule #1: \"override-name\" cannot be negated with \"!\"\nshare !override-name x\n       ^\n"},
        {"host a\n", "r.rules:1:1: rule #1: no action: a rule needs \"share\" or \"block\"\nhost a\n^\n"},
        {"quick host\n", "r.rules:1:7: rule #1: no action: a rule needs \"share\" or \"block\" (and \"host\" at the end is missing its value)\nquick host\n      ^\n"},
        {"host share\n", "r.rules:1:6: rule #1: no action: \"share\" was read as the value of \"host\"\nhost share\n     ^\n"},
        {"share hwid 12:x1\n", "r.rules:1:12: rule #1: bad hwid component \"x1\": not a hexadecimal number\nshare hwid 12:x1\n           ^\n"},
        {"share class 1:2:3:4\n", "r.rules:1:13: rule #1: class value \"1:2:3:4\" has more than three components\nshare class 1:2:3:4\n            ^\n"},
        {"share name is \"a b\n", "r.rules:1:15: rule #1: unterminated quote: the double quote opened here is not closed on this line\nshare name is \"a b\n              ^\n"},
        {"share serial ab\xc3\n", "r.rules:1:14: rule #1: invalid UTF-8 in this word\nshare serial ab\xc3\n             ^\n"},
        {"rdesk share host a\n", "r.rules:1:13: rule #1: \"host\" after \"rdesk\": a rule names either hosts or remote desktop\nrdesk share host a\n            ^\n"},
        {"share host a !rdesk\n", "r.rules:1:15: rule #1: \"rdesk\" after \"host\": a rule names either hosts or remote desktop\nshare host a !rdesk\n              ^\n"},
        {"share host a host b\n", "r.rules:1:14: rule #1: duplicate clause \"host\": it may appear only once in a rule\nshare host a host b\n             ^\n"},
        {"share name equals x\n", "r.rules:1:12: rule #1: \"name\" must be followed by \"is\" or \"contains\", not \"equals\"\nshare name equals x\n           ^\n"},
        {"share\n\"\"\n", "r.rules:2:1: rule #2: rule has no words: empty quotes, a lone backslash or blank yield none\n\"\"\n^\n"},
        // Rule numbers count rules, lines count the file: continuations, comments and blank lines
        // tell them apart. Tabs are kept so that the caret lines up; a multi-byte character takes
        // one place. The last byte of a file without a final line feed is read even in a comment.
        // A NUL ends a rule but not a line of the file.
        {"# header\n\nshare \\\n   hwid 1 Share\r\n", "r.rules:4:11: rule #1: unknown clause word \"Share\"\n   hwid 1 Share\n          ^\n"},
        {"share\tname is \"\xc3\xa9t\xc3\xa9\" Share\n", "r.rules:1:23: rule #1: unknown clause word \"Share\"\nshare\tname is \"\xc3\xa9t\xc3\xa9\" Share\n     \t              ^\n"},
        {"share\n# comment", "r.rules:2:9: rule #2: unknown clause word \"t\"\n# comment\n        ^\n"},
        {"share\0Share\n"sv, "r.rules:1:7: rule #2: unknown clause word \"Share\"\nshare\0Share\n      ^\n"sv},
    };
    // clang-format on
    for (const ErrorCase& c : cases) {
        EXPECT_TRUE(finished(check(c.text), 1, "", c.report)) << c.text;
    }
}

TEST(RuleCheckTest, ValidRulesComeBackCanonicalWithWarnings) {
    EXPECT_TRUE(finished(check("block  !rdesk   name \"is\" Keyboard # a comment\n\n"
                               "share hwid 46D:C31C class 3\n"),
                         0, "block !rdesk name is \"Keyboard\"\nshare hwid 046d:c31c class 03\n",
                         ""));
    EXPECT_EQ(check("").out, "");
    // Ends of rules that are ignored are warned about.
    EXPECT_TRUE(finished(
        check("share host\nblock\nshare name is\n"), 0, "share\nblock\nshare\n",
        "r.rules:1:7: warning: rule #1: missing value: \"host\" at the end of the rule has no "
        "value and is ignored\nshare host\n      ^\n"
        "r.rules:3:7: warning: rule #3: missing value: \"name\" at the end of the rule has no "
        "value and is ignored\nshare name is\n      ^\n"));
    // Host names are not resolved: such an entry matches only a TLS peer's
    // certificate name.
    EXPECT_TRUE(finished(
        check("share host \"10.0.0.5, lab-mac\"\nblock !host localhost\nblock host ::1\n"), 0,
        "share host \"10.0.0.5,lab-mac\"\nblock !host \"localhost\"\nblock host \"::1\"\n",
        "r.rules:1:12: warning: rule #1: host \"lab-mac\" is no address: host names are not "
        "resolved; it matches only a TLS peer whose certificate holds it\n"
        "share host \"10.0.0.5, lab-mac\"\n           ^\n"
        "r.rules:2:13: warning: rule #2: host \"localhost\" is no address: host names are not "
        "resolved; it matches only a TLS peer whose certificate holds it\n"
        "block !host localhost\n            ^\n"));
    EXPECT_EQ(check("block !\n").err, "r.rules:1:7: warning: rule #1: \"!\" at the end of the rule "
                                      "negates nothing and is ignored\nblock !\n      ^\n");
}

struct CommandLineCase {
    std::vector<const char*> arguments; // after the program name
    int status;
    std::string out;
    std::string err;
};

// Options, several files (the exit status is the gravest outcome), standard
// input, and unreadable files named with the system's reason.
TEST(RuleCheckTest, CommandLines) {
    const halvo::testkit::TempDir folder;
    folder.write("good", "share\n");
    folder.write("bad", "Share\n");
    folder.write("warn", "share host\n");
    const std::string usage = "usage: halvo-rulecheck [--strict] FILE|-...\n";
    const std::string badReport = "bad:1:1: rule #1: unknown clause word \"Share\"\nShare\n^\n";
    const std::string warning = "warn:1:7: warning: rule #1: missing value: \"host\" at the end of "
                                "the rule has no value and is ignored\nshare host\n      ^\n";
    const CommandLineCase cases[] = {
        {{"--version"}, 0, "halvo-rulecheck " HALVO_VERSION "\n", ""},
        {{}, 2, "", "halvo-rulecheck: no rule file given\n" + usage},
        {{"--bogus", "good"}, 2, "", "halvo-rulecheck: unknown option \"--bogus\"\n" + usage},
        {{"good", "bad", "good"}, 1, "share\nshare\n", badReport},
        {{"missing", "bad"},
         2,
         "",
         "halvo-rulecheck: missing: No such file or directory\n" + badReport},
        {{"."}, 2, "", "halvo-rulecheck: .: Is a directory\n"},
        {{"--", "--strict"}, 2, "", "halvo-rulecheck: --strict: No such file or directory\n"},
        {{"warn"}, 0, "share\n", warning},
        {{"good", "--strict", "warn"}, 1, "share\n", warning},
        {{"-", "good"}, 0, "block\nshare\n", ""},
    };
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    for (const CommandLineCase& c : cases) {
        std::vector<const char*> argv{"halvo-rulecheck"};
        argv.insert(argv.end(), c.arguments.begin(), c.arguments.end());
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> input(std::tmpfile(), &std::fclose);
        std::fputs("block\n", input.get());
        std::rewind(input.get());
        const RunResult run = capture([&](std::FILE* out, std::FILE* err) {
            return runRuleCheck(static_cast<int>(argv.size()), argv.data(), input.get(), out, err);
        });
        EXPECT_TRUE(finished(run, c.status, c.out, c.err)) << argv.back();
    }
    std::filesystem::current_path(before);
}

} // namespace
