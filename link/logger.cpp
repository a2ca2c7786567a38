#include "link/logger.h"

#include <cstdarg>
#include <cstdio>

namespace halvo::link {

void Logger::info(const char* format, ...) {
    va_list args;
    va_start(args, format);
    writeFormatted(LogLevel::info, format, args);
    va_end(args);
}

void Logger::error(const char* format, ...) {
    va_list args;
    va_start(args, format);
    writeFormatted(LogLevel::error, format, args);
    va_end(args);
}

void Logger::writeFormatted(LogLevel level, const char* format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (length < 0) {
        return;
    }
    std::string message(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(message.data(), message.size() + 1, format, args);
    write(level, message);
}

} // namespace halvo::link
