// What the daemon did and refused, for the administrator: one message per
// action, with structured fields (HALVO_UID, HALVO_PEER, HALVO_DEVICE, ...)
// that a journal keeps apart and plain sinks append as "NAME=value".
#pragma once

#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace halvo::daemon {

// Ordered as syslog's priorities, most severe first.
enum class LogLevel { error, warning, notice, info };

struct LogField {
    std::string_view name;
    std::string value;
};

class LogSink {
  public:
    virtual ~LogSink() = default;
    virtual void write(LogLevel level, std::string_view message,
                       std::span<const LogField> fields) = 0;
};

// The sink every later record goes to; none restores the default, which
// writes "halvod: message [NAME=value ...]" lines to standard error.
void setLogSink(std::shared_ptr<LogSink> sink);

void logActivity(LogLevel level, std::string_view message,
                 std::initializer_list<LogField> fields = {});

} // namespace halvo::daemon
