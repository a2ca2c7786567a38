#include "rulefiles/editor_session.h"
#include "tests/support/files.h"
#include "tests/support/process_runner.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace halvo::rulefiles {
namespace {

namespace fs = std::filesystem;
using testkit::runInChild;

const std::string kRetry =
    "Something went wrong with editor. Press any key to try one more time [y/n]: ";
const std::string kAgain = "Edit again [y/n]? ";
const std::string kExit0 = "exit 0";
const std::string kExit1 = "exit 1";
const std::string kKilled = "kill -KILL $$";

std::string writes(const std::string& text) {
    return "printf '%s\\n' '" + text + "' > \"$1\"";
}

// A stand-in editor whose n-th run does steps[n-1] (the last step repeats)
// and counts its runs in <dir>/runs.  It is installed in <dir>/bin as "ed",
// "myeditor" and "vi", and as "noexec" without execute permission.  It fails
// unless it is given exactly one argument.
std::string installEditor(const testkit::TempDir& dir, const std::vector<std::string>& steps) {
    const std::string bin = dir / "bin";
    fs::create_directory(bin);
    std::string script = "#!/bin/sh\n[ \"$#\" -eq 1 ] || exit 99\n";
    script += "runs=$(( $(cat '" + (dir / "runs").string() + "' 2>/dev/null || echo 0) + 1 ))\n";
    script += "echo \"$runs\" > '" + (dir / "runs").string() + "'\ncase $runs in\n";
    for (std::size_t i = 0; i + 1 < steps.size(); ++i)
        script += std::to_string(i + 1) + ") " + steps[i] + " ;;\n";
    script += "*) " + steps.back() + " ;;\nesac\n";
    for (const char* name : {"ed", "myeditor", "vi", "noexec"}) {
        dir.write(std::string("bin/") + name, script,
                  std::string_view(name) == "noexec" ? 0600 : 0700);
    }
    return bin;
}

// "%B" in an environment value stands for the folder of the stand-in editors.
void setOrUnset(const char* variable, const char* value, const std::string& bin) {
    if (value == nullptr) {
        ::unsetenv(variable);
        return;
    }
    std::string expanded = value;
    if (const auto at = expanded.find("%B"); at != std::string::npos)
        expanded.replace(at, 2, bin);
    ::setenv(variable, expanded.c_str(), 1);
}

struct SessionCase {
    const char* name;
    const char* visual; // nullptr: unset
    const char* editor; // nullptr: unset
    std::vector<std::string> steps;
    const char* answers;
    int status; // rules loaded, or 255 for none
    std::string out;
    std::string err;
    int runs;
    const char* finalText;
    void (*before)() = nullptr; // run in the child before the session
};

// clang-format off
const SessionCase kSessions[] = {
    {"edited text is loaded", "%B/ed", nullptr, {writes("block quick")}, "", 1, "", "", 1, "block quick\n"},
    {"Return after a failed edit edits again", "%B/ed", nullptr, {kExit1, writes("share\nblock")}, "\n", 2, kRetry, "", 2, "share\nblock\n"},
    {"an editor ended by a signal has failed; y edits again", "%B/ed", nullptr, {kKilled, kExit0}, "y", 1, kRetry, "", 2, "share\n"},
    {"end of input at the retry prompt edits again", "%B/ed", nullptr, {kExit1, kExit0}, "", 1, kRetry, "", 2, "share\n"},
    {"n at the retry prompt gives up", "%B/ed", nullptr, {kExit1}, "n", 255, kRetry, "", 1, "share\n"},
    {"the newline after y answers the next retry prompt", "%B/ed", nullptr, {kExit1, kExit1, kExit0}, "y\n", 1, kRetry + kRetry, "", 3, "share\n"},
    {"unparsable text is kept on give-up", "%B/ed", nullptr, {writes("share\nbogus")}, "n", 255, kAgain, "Parsing error at rule #2\n", 1, "share\nbogus\n"},
    {"y edits the very text that failed", "%B/ed", nullptr, {writes("bogus"), "grep -qx bogus \"$1\" || exit 7; " + writes("block")}, "y", 1, kAgain, "Parsing error at rule #1\n", 2, "block\n"},
    {"the e of yes answers the editor's retry prompt", "%B/ed", nullptr, {writes("bogus"), kExit1, writes("share")}, "yes\n", 1, kAgain + kRetry, "Parsing error at rule #1\n", 3, "share\n"},
    {"empty VISUAL is used as it stands", "", "%B/ed", {kExit0}, "n", 255, kRetry, "Cannot launch editor (2).\n", 0, "share\n"},
    {"an editor without execute permission", "%B/noexec", nullptr, {kExit0}, "n", 255, kRetry, "Cannot launch editor (13).\n", 0, "share\n"},
    {"VISUAL is one program name, never split", "myeditor --flag", "%B/ed", {kExit0}, "n", 255, kRetry, "Cannot launch editor (2).\n", 0, "share\n"},
    {"VISUAL is not run by a shell", "touch %B/marker; true", nullptr, {kExit0}, "n", 255, kRetry, "Cannot launch editor (2).\n", 0, "share\n"},
    {"EDITOR when VISUAL is unset, found on PATH", nullptr, "myeditor", {writes("block")}, "", 1, "", "", 1, "block\n"},
    {"vi when neither is set", nullptr, nullptr, {writes("block")}, "", 1, "", "", 1, "block\n"},
    {"the editor's output follows what was pending", "%B/ed", nullptr, {"echo editor output"}, "", 1, "editor output\n", "", 1, "share\n"},
    // With SIGCHLD ignored the editor is reaped by the system and its status
    // is lost: the session gives up, and what the user wrote stays.
    {"lost editor status ends the session", "%B/ed", nullptr, {writes("block")}, "", 255, "", "Cannot get status of editor process\n", 1, "block\n",
     [] { std::signal(SIGCHLD, SIG_IGN); }},
};
// clang-format on

TEST(LoadRulesFromEditor, DialogueWithEditorAndUser) {
    for (const auto& c : kSessions) {
        SCOPED_TRACE(c.name);
        testkit::TempDir dir;
        const std::string bin = installEditor(dir, c.steps);
        const std::string copy = dir / "rules";
        testkit::writeFile(copy, "share\n");

        const auto run = runInChild(
            [&] {
                setOrUnset("VISUAL", c.visual, bin);
                setOrUnset("EDITOR", c.editor, bin);
                ::setenv("PATH", (bin + ":/usr/bin:/bin").c_str(), 1);
                // Still buffered when the editor starts: it must come out
                // first, and once.
                std::fputs("copy written\n", stdout);
                if (c.before != nullptr) {
                    c.before();
                }
                const auto rules = loadRulesFromEditor(copy);
                return rules ? static_cast<int>(rules->size()) : 255;
            },
            c.answers);

        EXPECT_TRUE(finished(run, c.status, "copy written\n" + c.out, c.err));
        EXPECT_EQ(testkit::readFile(dir / "runs"), c.runs ? std::to_string(c.runs) + "\n" : "");
        EXPECT_EQ(testkit::readFile(copy), c.finalText);
        EXPECT_FALSE(fs::exists(bin + "/marker"));
    }
}

// A user at the process limit cannot start the editor. Root is exempt from
// the limit, so a root run gives the child up to an unprivileged user first.
TEST(LoadRulesFromEditor, EditorThatCannotBeForkedEndsTheSession) {
    constexpr int kCannotLimit = 77;
    testkit::TempDir dir;
    const std::string bin = installEditor(dir, {writes("block")});
    const std::string copy = dir / "rules";
    testkit::writeFile(copy, "share\n");

    const auto run = runInChild([&] {
        ::setenv("VISUAL", (bin + "/ed").c_str(), 1);
        const rlimit none{0, 0};
        if ((::geteuid() == 0 && ::setuid(65534) != 0) || ::setrlimit(RLIMIT_NPROC, &none) != 0)
            return kCannotLimit;
        return loadRulesFromEditor(copy) ? 0 : 255;
    });

    if (run.status == kCannotLimit)
        GTEST_SKIP() << "cannot limit the number of processes here";
    EXPECT_EQ(run.status, 255);
    EXPECT_EQ(run.err, "Cannot create process.\n");
    EXPECT_EQ(testkit::readFile(dir / "runs"), "");
    EXPECT_EQ(testkit::readFile(copy), "share\n");
}

} // namespace
} // namespace halvo::rulefiles
