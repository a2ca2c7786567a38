#include "tests/support/finished_run.h"

namespace halvo::testkit {

namespace {

void compare(::testing::AssertionResult& result, bool& same, const char* name,
             const std::string& actual, std::string_view expected) {
    if (actual != expected) {
        same = false;
        result << "\n  " << name << ": " << ::testing::PrintToString(actual)
               << "\n  expected: " << ::testing::PrintToString(std::string(expected));
    }
}

} // namespace

::testing::AssertionResult finished(const RunResult& run, int status, std::string_view out,
                                    std::string_view err) {
    ::testing::AssertionResult result = ::testing::AssertionFailure();
    bool same = run.status == status && !run.timedOut && run.signal == 0;
    if (!same) {
        result << "\n  status: " << run.status << (run.timedOut ? " (timed out)" : "")
               << (run.signal != 0 ? " (signal " + std::to_string(run.signal) + ")" : "")
               << ", expected " << status;
    }
    compare(result, same, "stdout", run.out, out);
    compare(result, same, "stderr", run.err, err);
    return same ? ::testing::AssertionSuccess() : result;
}

} // namespace halvo::testkit
