#include "tests/support/process_runner.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <regex>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace halvo::testkit {

namespace {

using Clock = std::chrono::steady_clock;

// Built before fork: the child may only call async-signal-safe functions.
std::vector<std::string> childEnvironment(const RunOptions& options) {
    std::vector<std::string> env;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        const auto replaces = [&text](const auto& set) {
            return set.first == text.substr(0, text.find('='));
        };
        if (std::none_of(options.setEnv.begin(), options.setEnv.end(), replaces)) {
            env.emplace_back(text);
        }
    }
    for (const auto& [key, value] : options.setEnv) {
        env.push_back(key + "=" + value);
    }
    return env;
}

// The whole of `file` from its start; closes it.
std::string drain(std::FILE* file) {
    std::string text;
    std::rewind(file);
    char buffer[65536];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;) {
        text.append(buffer, n);
    }
    std::fclose(file);
    return text;
}

} // namespace

std::vector<char*> execPointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (std::string& s : strings) {
        result.push_back(s.data());
    }
    result.push_back(nullptr);
    return result;
}

RunResult runProgram(const std::string& program, const std::vector<std::string>& args,
                     const RunOptions& options) {
    std::vector<std::string> argvStrings{program};
    argvStrings.insert(argvStrings.end(), args.begin(), args.end());
    std::vector<std::string> envStrings = childEnvironment(options);
    std::vector<char*> argv = execPointers(argvStrings);
    std::vector<char*> envp = execPointers(envStrings);
    return runInChild(
        [&] {
            execve(argv[0], argv.data(), envp.data());
            return 127;
        },
        options.stdinData.value_or(""), options.timeout);
}

RunResult runInChild(const std::function<int()>& body, std::string_view input,
                     std::chrono::milliseconds limit) {
    std::FILE* streams[] = {std::tmpfile(), std::tmpfile(), std::tmpfile()};
    if (!input.empty()) { // an empty view may hold no pointer, which fwrite may not take
        std::fwrite(input.data(), 1, input.size(), streams[0]);
    }
    std::rewind(streams[0]);
    std::fflush(nullptr); // the runner's pending output must not be written twice
    const pid_t child = fork();
    if (child == 0) {
        for (int fd = 0; fd < 3; ++fd) {
            dup2(fileno(streams[fd]), fd);
        }
        std::clearerr(stdin);
        const int status = body();
        std::fflush(nullptr);
        _exit(status);
    }
    RunResult run;
    const auto deadline = Clock::now() + limit;
    int status = 0;
    while (child > 0 && waitpid(child, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline && !run.timedOut) {
            run.timedOut = true;
            kill(child, SIGKILL);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    run.status = child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.signal = child > 0 && WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    std::fclose(streams[0]);
    run.out = drain(streams[1]);
    run.err = drain(streams[2]);
    return run;
}

std::string withoutTimestamps(const std::string& output) {
    static const std::regex stamp(R"(^\[(Sun|Mon|Tue|Wed|Thu|Fri|Sat) (Jan|Feb|Mar|Apr|May|Jun|)"
                                  R"(Jul|Aug|Sep|Oct|Nov|Dec) [ 123]\d \d\d:\d\d:\d\d \d{4}\]: )",
                                  std::regex::multiline);
    return std::regex_replace(output, stamp, "");
}

std::string halvoctlPath() {
    return HALVOCTL_PATH;
}

RunResult runHalvoctl(const std::vector<std::string>& args, const RunOptions& options) {
    return runProgram(halvoctlPath(), args, options);
}

} // namespace halvo::testkit
