// A link logger that keeps every message in memory. Header only, so that
// the fuzzers use it without the test-support library.
#pragma once

#include "link/logger.h"

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::testkit {

class CapturingLogger final : public link::Logger {
  public:
    struct Entry {
        link::LogLevel level;
        std::string message;
    };
    std::vector<Entry> entries() const {
        std::lock_guard lock(mutex_);
        return entries_;
    }

  protected:
    void write(link::LogLevel level, std::string_view message) override {
        std::lock_guard lock(mutex_);
        entries_.push_back({level, std::string(message)});
    }

  private:
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
};

} // namespace halvo::testkit
