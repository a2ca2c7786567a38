#include "daemon/core/log_throttle.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace halvo::daemon {
namespace {

struct Lines final : LogSink {
    std::vector<std::string> lines;
    void write(LogLevel, std::string_view message, std::span<const LogField>) override {
        lines.emplace_back(message);
    }
};

TEST(LogThrottleTest, LogsABurstPerWindowAndCountsTheRestAtItsEnd) {
    auto sink = std::make_shared<Lines>();
    setLogSink(sink);
    boost::asio::io_context io;
    // A window of no length ends as soon as the loop runs.
    LogThrottle throttle(io, "clients refused", {.burst = 2, .window = std::chrono::seconds(0)});
    for (const char* line : {"a", "b", "c", "d", "e"}) {
        throttle.log(LogLevel::warning, line);
    }
    io.run();
    throttle.log(LogLevel::warning, "f");
    io.restart();
    io.run();
    setLogSink(nullptr);
    EXPECT_EQ(sink->lines,
              (std::vector<std::string>{"a", "b", "3 more clients refused in the last 0 s", "f"}));
}

} // namespace
} // namespace halvo::daemon
