#include "daemon/core/activity_log.h"

#include <cstdio>
#include <string>

namespace halvo::daemon {

namespace {

class StderrSink final : public LogSink {
  public:
    void write(LogLevel, std::string_view message, std::span<const LogField> fields) override {
        std::string line = "halvod: ";
        line.append(message);
        for (const LogField& field : fields) {
            line.append(" ").append(field.name).append("=").append(field.value);
        }
        line.push_back('\n');
        std::fwrite(line.data(), 1, line.size(), stderr);
        std::fflush(stderr);
    }
};

std::shared_ptr<LogSink>& currentSink() {
    static std::shared_ptr<LogSink> sink = std::make_shared<StderrSink>();
    return sink;
}

} // namespace

void setLogSink(std::shared_ptr<LogSink> sink) {
    currentSink() = sink ? std::move(sink) : std::make_shared<StderrSink>();
}

void logActivity(LogLevel level, std::string_view message, std::initializer_list<LogField> fields) {
    currentSink()->write(level, message, std::span<const LogField>(fields.begin(), fields.size()));
}

} // namespace halvo::daemon
