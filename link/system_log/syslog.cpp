// The system log where it is syslog(3).
#include "link/logger.h"

#include <syslog.h>

namespace halvo::link {

namespace {

class SyslogLogger final : public Logger {
  public:
    SyslogLogger(std::string subsystem, std::string category)
        : tag_(std::move(subsystem) + "[" + std::move(category) + "]") {}

  protected:
    void write(LogLevel level, std::string_view message) override {
        int priority = level == LogLevel::error ? LOG_ERR : LOG_INFO;
        syslog(priority, "%s: %.*s", tag_.c_str(), static_cast<int>(message.size()),
               message.data());
    }

  private:
    std::string tag_;
};

} // namespace

std::shared_ptr<Logger> makeSystemLogger(std::string subsystem, std::string category) {
    return std::make_shared<SyslogLogger>(std::move(subsystem), std::move(category));
}

} // namespace halvo::link
