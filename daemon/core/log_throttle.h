// Keeps a flood of like records (refused clients, failed accepts) from
// flooding the log: the first few of a window are logged as they come, the
// rest are counted, and when the window ends one record says how many were
// left out ("1234 more clients refused in the last 10 s").
#pragma once

#include "daemon/core/activity_log.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <string>

namespace halvo::daemon {

class LogThrottle {
  public:
    struct Settings {
        // Records logged in full per window.
        std::size_t burst = 10;
        std::chrono::seconds window{10};
    };

    // `counted` names what the summary counts, as "clients refused".
    LogThrottle(boost::asio::io_context& io, std::string counted, Settings settings);
    LogThrottle(boost::asio::io_context& io, std::string counted)
        : LogThrottle(io, std::move(counted), Settings{}) {}

    // Logs the record, or counts it when this window's burst is spent.
    void log(LogLevel level, std::string_view message, std::initializer_list<LogField> fields = {});

  private:
    void endWindow();

    std::string counted_;
    Settings settings_;
    boost::asio::steady_timer windowEnd_;
    bool windowOpen_ = false;
    std::size_t logged_ = 0;
    std::size_t leftOut_ = 0;
    LogLevel leftOutLevel_ = LogLevel::info;
};

} // namespace halvo::daemon
