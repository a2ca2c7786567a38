// The system log on Apple systems: os_log, where a subsystem and a category
// select the messages (log stream --predicate 'subsystem == "..."').
#include "link/logger.h"

#include <os/log.h>
#include <string>

namespace halvo::link {

namespace {

class OsLogLogger final : public Logger {
  public:
    OsLogLogger(const std::string& subsystem, const std::string& category)
        : log_(os_log_create(subsystem.c_str(), category.c_str())) {}

  protected:
    void write(LogLevel level, std::string_view message) override {
        const std::string text(message);
        const os_log_type_t type = level == LogLevel::error ? OS_LOG_TYPE_ERROR : OS_LOG_TYPE_INFO;
        // Public: the messages carry addresses and reasons, nothing private.
        os_log_with_type(log_, type, "%{public}s", text.c_str());
    }

  private:
    os_log_t log_;
};

} // namespace

std::shared_ptr<Logger> makeSystemLogger(std::string subsystem, std::string category) {
    return std::make_shared<OsLogLogger>(subsystem, category);
}

} // namespace halvo::link
