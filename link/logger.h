// The link's log: info and error levels, one subsystem and category.
// Messages about an object begin with "<%p>: " (its address).
#pragma once

#include <cstdarg>
#include <memory>
#include <string>
#include <string_view>

namespace halvo::link {

enum class LogLevel { info, error };

class Logger {
  public:
    virtual ~Logger() = default;

    void info(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void error(const char* format, ...) __attribute__((format(printf, 2, 3)));

  protected:
    virtual void write(LogLevel level, std::string_view message) = 0;

  private:
    void writeFormatted(LogLevel level, const char* format, va_list args)
        __attribute__((format(printf, 3, 0)));
};

// The system log: os_log on Apple systems, under the subsystem and category;
// syslog(3) elsewhere, each message tagged "subsystem[category]".
std::shared_ptr<Logger> makeSystemLogger(std::string subsystem, std::string category);

} // namespace halvo::link
