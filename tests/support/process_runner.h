// Runs a program with arguments, environment and standard input of the
// test's choosing, and captures what it writes and how it ends.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace halvo::testkit {

struct RunOptions {
    std::optional<std::string> stdinData; // none: standard input is /dev/null
    std::vector<std::pair<std::string, std::string>> setEnv;
    std::vector<std::string> unsetEnv;
    // The run is killed after this long; a test that expects the utility to
    // wait uses it as the bound.
    std::chrono::milliseconds timeout{15000};
};

struct RunResult {
    std::string out;
    std::string err;
    int status = -1; // exit status when the program exited
    int signal = 0;  // the signal that ended it, if any
    bool timedOut = false;
};

RunResult runProgram(const std::string& program, const std::vector<std::string>& args,
                     const RunOptions& options = {});

// The monitor's output with each line's "[Www Mmm dd hh:mm:ss yyyy]: " time
// stamp taken out; a line whose stamp has another layout is kept whole, so
// that it shows in a failure.
std::string withoutTimestamps(const std::string& output);

// The halvoctl under test, and its path.
std::string halvoctlPath();
RunResult runHalvoctl(const std::vector<std::string>& args, const RunOptions& options = {});

} // namespace halvo::testkit
