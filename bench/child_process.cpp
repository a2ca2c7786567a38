#include "bench/child_process.h"

#include "tests/support/portable_fd.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace halvo::bench {

namespace {

// What the launcher sends back for each request.
struct Reply {
    bool started = false;
    ChildRun run;
};

bool readAll(int fd, void* bytes, std::size_t size) {
    return testkit::receiveExactly(fd, static_cast<char*>(bytes), size, [] { return false; });
}

bool writeAll(int fd, const void* bytes, std::size_t size) {
    return testkit::sendAll(fd, std::string_view(static_cast<const char*>(bytes), size));
}

// A request is its byte count, then the output path and the arguments,
// each ended by a NUL.
std::string encodeRequest(const std::vector<std::string>& argv, const std::string& outputPath) {
    std::string body = outputPath + '\0';
    for (const std::string& argument : argv) {
        body += argument;
        body += '\0';
    }
    const auto size = static_cast<std::uint32_t>(body.size());
    return std::string(reinterpret_cast<const char*>(&size), sizeof size) + body;
}

std::vector<char*> splitAtNuls(std::string& body) {
    std::vector<char*> pieces;
    for (std::size_t start = 0; start < body.size(); start = body.find('\0', start) + 1) {
        pieces.push_back(body.data() + start);
    }
    return pieces;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// In the new process: standard output to the file, then the program.
[[noreturn]] void becomeChild(const char* outputPath, char* const* argv) {
    int out = open(outputPath, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || dup2(out, STDOUT_FILENO) < 0) {
        _exit(127);
    }
    if (out != STDOUT_FILENO) {
        close(out);
    }
    execv(argv[0], argv);
    _exit(127);
}

Reply launch(std::string& body) {
    std::vector<char*> pieces = splitAtNuls(body);
    std::vector<char*> argv(pieces.begin() + 1, pieces.end());
    argv.push_back(nullptr);

    Reply reply;
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    const pid_t pid = fork();
    if (pid < 0) {
        return reply;
    }
    if (pid == 0) {
        becomeChild(pieces[0], argv.data());
    }
    int status = 0;
    rusage usage{};
    while (wait4(pid, &status, 0, &usage) < 0) {
        if (errno != EINTR) {
            return reply;
        }
    }
    const Clock::time_point end = Clock::now();
    reply.started = true;
    reply.run.wallSeconds = std::chrono::duration<double>(end - start).count();
    reply.run.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    reply.run.peakMiB = static_cast<double>(usage.ru_maxrss) / 1024.0; // ru_maxrss is in KiB
    reply.run.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return reply;
}

// The launcher's whole life: one request at a time until the caller
// closes its end.
[[noreturn]] void serveLaunches(int requests, int replies) {
    for (;;) {
        std::uint32_t size = 0;
        if (!readAll(requests, &size, sizeof size)) {
            _exit(0);
        }
        std::string body(size, '\0');
        if (!readAll(requests, body.data(), body.size())) {
            _exit(0);
        }
        const Reply reply = launch(body);
        if (!writeAll(replies, &reply, sizeof reply)) {
            _exit(0);
        }
    }
}

} // namespace

ChildLauncher::ChildLauncher() {
    // Socket pairs rather than pipes, so that the test support's
    // descriptor loops carry the requests and replies.
    int toLauncher[2];
    int fromLauncher[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, toLauncher) != 0 ||
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fromLauncher) != 0) {
        std::perror("halvo_bench: socketpair");
        std::exit(1);
    }
    launcher_ = fork();
    if (launcher_ < 0) {
        std::perror("halvo_bench: fork");
        std::exit(1);
    }
    if (launcher_ == 0) {
        close(toLauncher[1]);
        close(fromLauncher[0]);
        serveLaunches(toLauncher[0], fromLauncher[1]);
    }
    close(toLauncher[0]);
    close(fromLauncher[1]);
    requests_ = toLauncher[1];
    replies_ = fromLauncher[0];
}

ChildLauncher::~ChildLauncher() {
    close(requests_);
    close(replies_);
    int status = 0;
    while (waitpid(launcher_, &status, 0) < 0 && errno == EINTR) {
    }
}

std::optional<ChildRun> ChildLauncher::run(const std::vector<std::string>& argv,
                                           const std::string& outputPath) {
    const std::string request = encodeRequest(argv, outputPath);
    Reply reply;
    if (!writeAll(requests_, request.data(), request.size()) ||
        !readAll(replies_, &reply, sizeof reply) || !reply.started) {
        return std::nullopt;
    }
    return reply.run;
}

} // namespace halvo::bench
