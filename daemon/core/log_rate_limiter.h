// Keeps a flood of like log records (a refusal per connection, say) to a few
// lines and a count: at most `burst` records in each period are written, the
// others only counted, and the count is written once the period is over.
// The caller gives the time, so the decision is plain arithmetic.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace halvo::daemon {

class LogRateLimiter {
  public:
    using Clock = std::chrono::steady_clock;

    LogRateLimiter(std::size_t burst, Clock::duration period);

    // Whether the record at `now` is to be written; one that is not is
    // counted. A period starts with the first record after the last one.
    bool admit(Clock::time_point now);

    // The records held back since the last call (the count starts again):
    // for one line that says how many were not written.
    std::uint64_t takeHeldBack();

    // When the current period ends: the time to write the count.
    Clock::time_point periodEnd() const { return periodStart_ + period_; }

  private:
    std::size_t burst_;
    Clock::duration period_;
    Clock::time_point periodStart_{};
    std::size_t written_ = 0;
    std::uint64_t heldBack_ = 0;
    bool started_ = false;
};

} // namespace halvo::daemon
