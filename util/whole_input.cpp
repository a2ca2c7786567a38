#include "util/whole_input.h"

#include "util/utf8.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace halvo::util {
namespace {

constexpr std::size_t kStdinBlock = 1024;

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

// Reads until end of file rather than trusting the size from fstat, so that
// pipes and files that grow while being read come in whole.
bool appendUntilEnd(int fd, std::string& data) {
    char block[64 * 1024];
    for (;;) {
        const ssize_t got = ::read(fd, block, sizeof block);
        if (got == 0)
            return true;
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data.append(block, static_cast<std::size_t>(got));
    }
}

std::optional<std::string> readFileBytes(const char* path) {
    if (!isValidUtf8(path))
        return std::nullopt;
    const FileDescriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    if (file.get() < 0)
        return std::nullopt;
    // A directory can be opened, and on some systems read() hands out its
    // raw entries: refuse it before reading.
    struct stat info {};
    if (::fstat(file.get(), &info) != 0 || S_ISDIR(info.st_mode))
        return std::nullopt;
    std::string data;
    if (!appendUntilEnd(file.get(), data))
        return std::nullopt;
    return data;
}

// Blocks of 1024 bytes until a read returns nothing; only then does the
// stream's error indicator tell an unreadable input from the end of it.
std::optional<std::string> readWholeStdin() {
    std::string data;
    char block[kStdinBlock];
    for (;;) {
        const std::size_t got = std::fread(block, 1, sizeof block, stdin);
        if (got == 0)
            break;
        data.append(block, got);
    }
    if (std::ferror(stdin))
        return std::nullopt;
    return data;
}

std::optional<std::string> loadBytes(const char* path) {
    return path == nullptr ? readWholeStdin() : readFileBytes(path);
}

void reportLoadFailure(const char* path, const char* label) {
    if (path == nullptr) {
        std::fprintf(stderr, "Error loading %s from stdin.\n", label);
    } else {
        std::fprintf(stderr, "Error loading %s from %s.\n", label, path);
    }
}

} // namespace

std::optional<std::string> load_any_file(const char* path, const char* label) {
    std::optional<std::string> data;
    try {
        data = loadBytes(path);
    } catch (const std::bad_alloc&) {
        // An input too large for memory is reported like an unreadable one.
    }
    if (!data)
        reportLoadFailure(path, label);
    return data;
}

} // namespace halvo::util
