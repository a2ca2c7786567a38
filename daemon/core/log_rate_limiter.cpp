#include "daemon/core/log_rate_limiter.h"

namespace halvo::daemon {

LogRateLimiter::LogRateLimiter(std::size_t burst, Clock::duration period)
    : burst_(burst), period_(period) {}

bool LogRateLimiter::admit(Clock::time_point now) {
    if (!started_ || now >= periodEnd()) {
        started_ = true;
        periodStart_ = now;
        written_ = 0;
    }
    if (written_ < burst_) {
        ++written_;
        return true;
    }
    ++heldBack_;
    return false;
}

std::uint64_t LogRateLimiter::takeHeldBack() {
    const std::uint64_t count = heldBack_;
    heldBack_ = 0;
    return count;
}

} // namespace halvo::daemon
