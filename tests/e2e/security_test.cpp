// What user text cannot make the utility do: be read as a format, reach the
// daemon after a rule set failed to parse, or cost the user an edited rule
// file. (Daemon text as a format is the listings' and printers' unit tables;
// that VISUAL never reaches a shell is the editor session's unit test.)
#include "tests/support/e2e.h"

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace halvo::testkit {
namespace {

namespace fs = std::filesystem;

// Text a printf-style call would read as conversions; %n would write.
const std::string kFormat = "%s%n%x%p%%";
const std::string kOk = R"({"status":"ok"})";
const std::string kInternalError = "Internal error.\n";

// The program's own name, as the help text shows it. (User text in the
// requests and messages is in the command tables, with printf conversions.)
TEST(SecurityTest, ProgramNameIsPrintedAsItStands) {
    TempDir dir;
    const std::string alias = dir / kFormat;
    fs::create_symlink(HALVOCTL_PATH, alias);
    RunResult help = runProgram(alias, {"-h"});
    std::string expected = helpText();
    for (std::size_t at = expected.find("halvoctl"); at != std::string::npos;
         at = expected.find("halvoctl", at + kFormat.size())) {
        expected.replace(at, std::string("halvoctl").size(), kFormat);
    }
    EXPECT_TRUE(finished(help, 0, expected, ""));
}

struct UnparsedCase {
    std::vector<std::string> args;
    std::optional<std::string> stdinData;
    std::string err;
};

TEST(SecurityTest, RuleSetThatFailsToParseNeverReachesTheDaemon) {
    TempDir dir;
    dir.write("bad", "share\nblock name is \"unterminated\n");
    // clang-format off
    const UnparsedCase cases[] = {
        {{"rule", "load", dir / "bad"}, std::nullopt, "Parsing error at rule #2\n"},
        // "-" is a file name for rule load; only rule test -f reads stdin for it.
        {{"rule", "load", "-"}, "share\n", "Error loading rules from -.\n"},
        {{"rule", "load"}, "share\nshare share\n", "Parsing error at rule #2\n"},
        {{"rule", "test", "-f", dir / "bad", "-r", "1"}, std::nullopt, "Parsing error at rule #2\n"},
    };
    // clang-format on
    for (const UnparsedCase& c : cases) {
        ScriptedDaemon daemon;
        bool contacted = false; // read after join(), which ends the daemon's thread
        daemon.onAccept([&contacted](PeerConnection&) { contacted = true; });
        RunOptions options;
        options.stdinData = c.stdinData;
        const RunResult run = runAgainst(daemon, c.args, options).run;
        EXPECT_EQ(run.status, 5) << testing::PrintToString(c.args);
        EXPECT_EQ(run.err, c.err) << testing::PrintToString(c.args);
        EXPECT_FALSE(contacted) << testing::PrintToString(c.args);
    }
}

struct EditFailureCase {
    const char* name;
    int editorStatus;
    std::string answers;
    std::function<void(const ReceivedPacket&, PeerConnection&)> onLoad; // the reply to 8 and on
    std::string err;
};

// Answers every request of a load with success, but the one of `code`.
auto refusing(std::uint32_t code) {
    return [code](const ReceivedPacket& request, PeerConnection& peer) {
        peer.send(request.command, request.command == code ? R"({"status":"error"})" : kOk);
    };
}

// The user's edits survive every way in which `rule edit` can fail after
// the editor ran: the edit file stays where the utility said it is, holding
// what the user wrote.
TEST(SecurityTest, EditedFileOutlivesEveryFailure) {
    const std::string edit = "block name is \"mine\" # edited by hand\n";
    // clang-format off
    const EditFailureCase cases[] = {
        {"editor failed after writing, not run again", 1, "n", nullptr, ""},
        {"daemon refuses the set", 0, "", refusing(8), kInternalError},
        {"daemon refuses the commit", 0, "", refusing(11), kInternalError},
        {"daemon closes instead of answering", 0, "", [](const ReceivedPacket&, PeerConnection& p) { p.close(); }, "\nconnection stopped by peer\n"},
    };
    // clang-format on
    for (const EditFailureCase& c : cases) {
        TempDir dir;
        // The stand-in editor records the path it was given in <dir>/edited.
        RunOptions options;
        options.setEnv = {
            {"VISUAL", dir.write("ed",
                                 "#!/bin/sh\nprintf '%s' \"$1\" > '" + (dir / "edited").string() +
                                     "'\nprintf '%s' '" + edit + "' > \"$1\"\nexit " +
                                     std::to_string(c.editorStatus) + "\n",
                                 0700)}};
        options.stdinData = c.answers;
        ScriptedDaemon daemon;
        daemon.onPacket([&c](const ReceivedPacket& request, PeerConnection& peer) {
            if (request.command == 6) {
                peer.send(6, kOk);
            } else if (request.command == 7) {
                peer.send(7, R"({"rules":[{"action":"share"}]})");
            } else if (c.onLoad) {
                c.onLoad(request, peer);
            }
        });
        Exchange exchange = runAgainst(daemon, {"rule", "edit"}, options);
        EXPECT_EQ(exchange.run.status, 5) << c.name;
        EXPECT_EQ(exchange.run.err, c.err) << c.name;
        // Without a rule set from the editor, nothing is loaded.
        EXPECT_EQ(exchange.sent.size() > 2, c.onLoad != nullptr) << c.name;

        const std::string path = readFile(dir / "edited");
        ASSERT_FALSE(path.empty()) << c.name << ": the editor did not run";
        EXPECT_NE(exchange.run.out.find("In case of error the copy of rules is put into \"" + path +
                                        "\"."),
                  std::string::npos)
            << c.name;
        EXPECT_EQ(readFile(path), edit) << c.name;
        fs::remove(path);
    }
}

} // namespace
} // namespace halvo::testkit
