// How a run ended and what it wrote, and the one check of all three.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <string_view>

namespace halvo::testkit {

struct RunResult {
    std::string out;
    std::string err;
    int status = -1; // exit status or the body's result; -1 when it did not end so
    int signal = 0;  // the signal that ended it, if any
    bool timedOut = false;
};

// Whether the run ended with `status` and wrote exactly `out` and `err`; a
// failure shows every part that differs, escaped, beside what was expected.
::testing::AssertionResult finished(const RunResult& run, int status, std::string_view out,
                                    std::string_view err);

} // namespace halvo::testkit
