// Test helpers for the rule sources and the editor session: a scratch folder,
// and code run in a forked child whose stdin, stdout and stderr are temporary
// files, so that dialogues and messages compare byte for byte without
// touching the test runner's own streams.
#pragma once

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace halvo::rules::testing {

class ScratchDir {
  public:
    ScratchDir() : path_((std::filesystem::temp_directory_path() / "halvo-test.XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr)
            path_.clear();
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

// The whole of `file` from its start; closes it.
inline std::string drain(std::FILE* file) {
    std::string text;
    std::rewind(file);
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file))
        text.push_back(static_cast<char>(c));
    std::fclose(file);
    return text;
}

inline std::string readFile(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    return file ? drain(file) : std::string();
}

inline void writeFile(const std::string& path, std::string_view text) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
}

struct ChildRun {
    int status = -1; // the body's result; -1 when it had to be killed
    std::string out;
    std::string err;
};

inline int waitWithLimit(pid_t child, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline)
            ::kill(child, SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline ChildRun runInChild(const std::function<int()>& body, std::string_view input = {},
                           std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    std::FILE* streams[] = {std::tmpfile(), std::tmpfile(), std::tmpfile()};
    if (!input.empty())
        std::fwrite(input.data(), 1, input.size(), streams[0]);
    std::rewind(streams[0]);
    std::fflush(nullptr); // the runner's pending output must not be written twice
    const pid_t child = ::fork();
    if (child == 0) {
        for (int fd = 0; fd < 3; ++fd)
            ::dup2(::fileno(streams[fd]), fd);
        std::clearerr(stdin);
        const int status = body();
        std::fflush(nullptr);
        ::_exit(status);
    }
    ChildRun run{child < 0 ? -1 : waitWithLimit(child, limit), "", ""};
    std::fclose(streams[0]);
    run.out = drain(streams[1]);
    run.err = drain(streams[2]);
    return run;
}

} // namespace halvo::rules::testing
