// Runs a program with arguments, environment and standard input of the
// test's choosing, and captures what it writes and how it ends.
#pragma once

#include "tests/support/finished_run.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace halvo::testkit {

struct RunOptions {
    std::optional<std::string> stdinData; // none: standard input is /dev/null
    std::vector<std::pair<std::string, std::string>> setEnv;
    // The run is killed after this long; a test that expects the utility to
    // wait uses it as the bound.
    std::chrono::milliseconds timeout{15000};
};

// The strings' data followed by a null pointer, as execve takes them.
std::vector<char*> execPointers(std::vector<std::string>& strings);

RunResult runProgram(const std::string& program, const std::vector<std::string>& args,
                     const RunOptions& options = {});

// Runs `body` in a forked child whose standard streams are temporary files,
// standard input holding `input`, so that dialogues and messages compare byte
// for byte without touching the test runner's own streams. The status is what
// `body` returned; a child still running at `limit` is killed (status -1).
RunResult runInChild(const std::function<int()>& body, std::string_view input = {},
                     std::chrono::milliseconds limit = std::chrono::seconds(10));

// The monitor's output with each line's "[Www Mmm dd hh:mm:ss yyyy]: " time
// stamp taken out; a line whose stamp has another layout is kept whole, so
// that it shows in a failure.
std::string withoutTimestamps(const std::string& output);

// The halvoctl under test, and its path.
std::string halvoctlPath();
RunResult runHalvoctl(const std::vector<std::string>& args, const RunOptions& options = {});

} // namespace halvo::testkit
