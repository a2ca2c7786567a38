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
    // glibc's `stderr` is an assignable variable; what libFuzzer already
    // holds (its own copy of the old pointer, and descriptor 2) is untouched.
    stderr = nullStream();
}

void fail(const char* what, const std::string& detail) {
    // Descriptor 2 is still the terminal (see silenceStderr).
    std::FILE* terminal = fdopen(2, "w");
    if (terminal != nullptr) {
        std::fprintf(terminal, "\n*** %s\n%s\n", what, detail.c_str());
        std::fflush(terminal);
    }
    std::abort();
}

} // namespace halvo::fuzz
