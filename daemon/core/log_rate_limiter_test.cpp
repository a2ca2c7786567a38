#include "daemon/core/log_rate_limiter.h"

#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

using namespace std::chrono_literals;

TEST(LogRateLimiterTest, WritesABurstPerPeriodAndCountsTheRest) {
    LogRateLimiter limiter(2, 1000ms);
    const LogRateLimiter::Clock::time_point start{100s};
    struct Step {
        std::chrono::milliseconds at;
        bool written;
    };
    const Step kSteps[] = {
        {0ms, true},    {10ms, true},    {20ms, false},   {999ms, false},
        // A new period starts with the first record after the last one ended.
        {1000ms, true}, {1500ms, true}, {1600ms, false}, {5000ms, true},
    };
    for (const Step& step : kSteps) {
        SCOPED_TRACE(step.at.count());
        EXPECT_EQ(limiter.admit(start + step.at), step.written);
    }
    EXPECT_EQ(limiter.periodEnd(), start + 6000ms);
    EXPECT_EQ(limiter.takeHeldBack(), 3u);
    EXPECT_EQ(limiter.takeHeldBack(), 0u) << "the count starts again";
}

} // namespace
} // namespace halvo::daemon
