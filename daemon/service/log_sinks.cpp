#include "daemon/service/log_sinks.h"

#include "daemon/service/service_manager.h"

#include <string>
#include <sys/stat.h>
#include <syslog.h>

namespace halvo::daemon {

namespace {

int syslogPriority(LogLevel level) {
    switch (level) {
    case LogLevel::error:
        return LOG_ERR;
    case LogLevel::warning:
        return LOG_WARNING;
    case LogLevel::notice:
        return LOG_NOTICE;
    case LogLevel::info:
        break;
    }
    return LOG_INFO;
}

class SyslogSink final : public LogSink {
  public:
    SyslogSink() { ::openlog("halvod", LOG_PID, LOG_DAEMON); }
    ~SyslogSink() override { ::closelog(); }
    SyslogSink(const SyslogSink&) = delete;
    SyslogSink& operator=(const SyslogSink&) = delete;

    void write(LogLevel level, std::string_view message,
               std::span<const LogField> fields) override {
        std::string line(message);
        for (const LogField& field : fields) {
            line.append(" ").append(field.name).append("=").append(field.value);
        }
        ::syslog(syslogPriority(level), "%s", line.c_str());
    }
};

bool standardErrorIsNowhere() {
    struct stat error {};
    struct stat null {};
    if (::fstat(2, &error) != 0) {
        return true;
    }
    return S_ISCHR(error.st_mode) && ::stat("/dev/null", &null) == 0 &&
           error.st_rdev == null.st_rdev;
}

} // namespace

std::shared_ptr<LogSink> chooseLogSink() {
    if (auto journal = service_manager::journalSinkIfConnected()) {
        return journal;
    }
    if (standardErrorIsNowhere()) {
        return std::make_shared<SyslogSink>();
    }
    // The activity log's default: "halvod: ..." lines on standard error.
    return nullptr;
}

} // namespace halvo::daemon
