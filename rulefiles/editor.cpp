#include "rulefiles/editor.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace halvo::rulefiles {
namespace {

enum class EditorOutcome { succeeded, failed, notRun };

std::string chooseEditor() {
    if (const char* visual = std::getenv("VISUAL"))
        return visual;
    if (const char* editor = std::getenv("EDITOR"))
        return editor;
    return "vi";
}

// Runs in the forked child of a possibly multi-threaded process, where stdio
// locks and the allocator may be held by threads that no longer exist: the
// message is built on the stack and written with write(2) alone.
void reportLaunchFailure(int error) {
    constexpr std::string_view head = "Cannot launch editor (";
    constexpr std::string_view tail = ").\n";
    char message[64];
    char* end = std::copy(head.begin(), head.end(), message);
    end = std::to_chars(end, message + sizeof message - tail.size(), error).ptr;
    end = std::copy(tail.begin(), tail.end(), end);
    [[maybe_unused]] const ssize_t written =
        ::write(STDERR_FILENO, message, static_cast<std::size_t>(end - message));
}

[[noreturn]] void execEditor(char* const argv[]) {
    ::execvp(argv[0], argv);
    reportLaunchFailure(errno);
    // No exit handlers and no stdio flushing: those belong to the parent.
    ::_exit(1);
}

std::optional<int> waitForExit(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return std::nullopt;
    }
    return status;
}

EditorOutcome runOnce(const std::string& editor, const std::string& path) {
    // The argument list is made before fork(): the child must not allocate.
    std::string editorArg = editor;
    std::string pathArg = path;
    char* const argv[] = {editorArg.data(), pathArg.data(), nullptr};

    // Whatever the parent has buffered (the copy's notice, a parser message)
    // must reach the terminal before the editor takes it over; and a child
    // holding no pending output cannot write it a second time.
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child < 0) {
        std::fputs("Cannot create process.\n", stderr);
        return EditorOutcome::notRun;
    }
    if (child == 0)
        execEditor(argv);

    const auto status = waitForExit(child);
    if (!status) {
        std::fputs("Cannot get status of editor process\n", stderr);
        return EditorOutcome::notRun;
    }
    // A normal exit with status 0; the core-dump bit (0x80) does not matter.
    return (*status & 0xff7f) == 0 ? EditorOutcome::succeeded : EditorOutcome::failed;
}

// One character, newlines not passed over: a Return left unread after an
// earlier answer starts the editor again at once.
bool userWantsRetry() {
    std::fputs("Something went wrong with editor. Press any key to try one more time [y/n]: ",
               stdout);
    std::fflush(stdout);
    return std::getchar() != 'n';
}

} // namespace

int runEditor(const std::string& path) {
    // Chosen once: a retry runs the same editor even if the environment changed.
    const std::string editor = chooseEditor();
    for (;;) {
        switch (runOnce(editor, path)) {
        case EditorOutcome::succeeded:
            return 1;
        case EditorOutcome::notRun:
            return 0;
        case EditorOutcome::failed:
            if (!userWantsRetry())
                return 0;
            break;
        }
    }
}

} // namespace halvo::rulefiles
