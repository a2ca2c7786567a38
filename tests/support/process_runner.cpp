#include "tests/support/process_runner.h"

#include "tests/support/portable_fd.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <regex>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace halvo::testkit {

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
    int read = -1;
    int write = -1;
};

Pipe makePipe() {
    int fds[2];
    if (!openPipe(fds)) {
        std::abort();
    }
    return {fds[0], fds[1]};
}

// Built before fork: the child may only call async-signal-safe functions.
std::vector<std::string> childEnvironment(const RunOptions& options) {
    std::vector<std::string> env;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string text(*entry);
        std::string name = text.substr(0, text.find('='));
        bool replaced = false;
        for (const auto& unset : options.unsetEnv) {
            replaced = replaced || unset == name;
        }
        for (const auto& [key, value] : options.setEnv) {
            replaced = replaced || key == name;
        }
        if (!replaced) {
            env.push_back(text);
        }
    }
    for (const auto& [key, value] : options.setEnv) {
        env.push_back(key + "=" + value);
    }
    return env;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (std::string& s : strings) {
        result.push_back(s.data());
    }
    result.push_back(nullptr);
    return result;
}

[[noreturn]] void execChild(const Pipe& in, const Pipe& out, const Pipe& err, char** argv,
                            char** envp, bool hasStdin) {
    if (hasStdin) {
        dup2(in.read, STDIN_FILENO);
    } else {
        int null = open("/dev/null", O_RDONLY);
        dup2(null, STDIN_FILENO);
    }
    dup2(out.write, STDOUT_FILENO);
    dup2(err.write, STDERR_FILENO);
    execve(argv[0], argv, envp);
    _exit(127);
}

// Feeds standard input and drains both outputs until the child closes them
// or the time is up.
bool pump(int stdinFd, const std::string& input, int outFd, int errFd, RunResult& result,
          Clock::time_point deadline) {
    std::size_t fed = 0;
    if (stdinFd >= 0 && input.empty()) {
        close(stdinFd);
        stdinFd = -1;
    }
    while (outFd >= 0 || errFd >= 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            for (int fd : {stdinFd, outFd, errFd}) {
                if (fd >= 0) {
                    close(fd);
                }
            }
            return false;
        }
        pollfd fds[3] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}, {stdinFd, POLLOUT, 0}};
        if (poll(fds, 3, static_cast<int>(std::min<long>(left.count(), 100))) < 0 &&
            errno != EINTR) {
            return false;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) {
                continue;
            }
            char buffer[65536];
            ssize_t count = read(fds[i].fd, buffer, sizeof buffer);
            if (count > 0) {
                (i == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(count));
            } else if (count == 0 || errno != EINTR) {
                close(fds[i].fd);
                (i == 0 ? outFd : errFd) = -1;
            }
        }
        if (stdinFd >= 0 && fds[2].revents != 0) {
            ssize_t count = write(stdinFd, input.data() + fed, input.size() - fed);
            if (count > 0) {
                fed += static_cast<std::size_t>(count);
            }
            if (count < 0 || fed == input.size()) {
                close(stdinFd);
                stdinFd = -1;
            }
        }
    }
    if (stdinFd >= 0) {
        close(stdinFd);
    }
    return true;
}

} // namespace

RunResult runProgram(const std::string& program, const std::vector<std::string>& args,
                     const RunOptions& options) {
    std::vector<std::string> argvStrings{program};
    argvStrings.insert(argvStrings.end(), args.begin(), args.end());
    std::vector<std::string> envStrings = childEnvironment(options);
    std::vector<char*> argv = pointers(argvStrings);
    std::vector<char*> envp = pointers(envStrings);

    Pipe in = makePipe();
    Pipe out = makePipe();
    Pipe err = makePipe();
    std::signal(SIGPIPE, SIG_IGN);
    pid_t child = fork();
    if (child == 0) {
        execChild(in, out, err, argv.data(), envp.data(), options.stdinData.has_value());
    }
    close(in.read);
    close(out.write);
    close(err.write);

    RunResult result;
    const auto deadline = Clock::now() + options.timeout;
    bool drained = pump(options.stdinData ? in.write : -1, options.stdinData.value_or(""), out.read,
                        err.read, result, deadline);
    if (!options.stdinData) {
        close(in.write);
    }
    int status = 0;
    if (!drained) {
        // Still running at the bound: end it; its output so far is kept.
        result.timedOut = true;
        kill(child, SIGKILL);
    }
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.signal = WTERMSIG(status);
    }
    return result;
}

namespace {

// The whole of `file` from its start; closes it.
std::string drain(std::FILE* file) {
    std::string text;
    std::rewind(file);
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) {
        text.push_back(static_cast<char>(c));
    }
    std::fclose(file);
    return text;
}

} // namespace

RunResult runInChild(const std::function<int()>& body, std::string_view input,
                     std::chrono::milliseconds limit) {
    std::FILE* streams[] = {std::tmpfile(), std::tmpfile(), std::tmpfile()};
    std::fwrite(input.data(), 1, input.size(), streams[0]);
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
#ifdef HALVOCTL_PATH
    return HALVOCTL_PATH;
#else
    const char* path = std::getenv("HALVOCTL");
    return path != nullptr ? path : "halvoctl";
#endif
}

RunResult runHalvoctl(const std::vector<std::string>& args, const RunOptions& options) {
    return runProgram(halvoctlPath(), args, options);
}

} // namespace halvo::testkit
