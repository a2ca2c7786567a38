#include "daemon/core/log_throttle.h"

#include <algorithm>

namespace halvo::daemon {

LogThrottle::LogThrottle(boost::asio::io_context& io, std::string counted, Settings settings)
    : counted_(std::move(counted)), settings_(settings), windowEnd_(io) {}

void LogThrottle::log(LogLevel level, std::string_view message,
                      std::initializer_list<LogField> fields) {
    if (!windowOpen_) {
        windowOpen_ = true;
        windowEnd_.expires_after(settings_.window);
        windowEnd_.async_wait([this](const boost::system::error_code& error) {
            if (!error) {
                endWindow();
            }
        });
    }
    if (logged_ < settings_.burst) {
        ++logged_;
        logActivity(level, message, fields);
        return;
    }
    ++leftOut_;
    // The summary is as severe as the worst record it stands for.
    leftOutLevel_ = std::min(leftOutLevel_, level);
}

void LogThrottle::endWindow() {
    windowOpen_ = false;
    logged_ = 0;
    if (leftOut_ == 0) {
        return;
    }
    const std::size_t leftOut = leftOut_;
    leftOut_ = 0;
    logActivity(leftOutLevel_, std::to_string(leftOut) + " more " + counted_ + " in the last " +
                                   std::to_string(settings_.window.count()) + " s");
    leftOutLevel_ = LogLevel::info;
}

} // namespace halvo::daemon
