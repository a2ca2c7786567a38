#include "fuzz/fuzz_streams.h"

#include <cstdlib>

namespace halvo::fuzz {

std::FILE* nullStream() {
    static std::FILE* const stream = std::fopen("/dev/null", "w");
    if (stream == nullptr) {
        std::abort();
    }
    return stream;
}

void silenceStderr() {
    // glibc's `stderr` is assignable; libFuzzer's copy and descriptor 2 stay.
    stderr = nullStream();
}

void fail(const char* what, const std::string& detail) {
    std::FILE* terminal = fdopen(2, "w");
    if (terminal != nullptr) {
        std::fprintf(terminal, "\n*** %s\n%s\n", what, detail.c_str());
        std::fflush(terminal);
    }
    std::abort();
}

} // namespace halvo::fuzz
