#include "cli/event_printer.h"
#include "tests/support/stream_capture.h"

#include <boost/json/parse.hpp>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace {

namespace json = boost::json;
using halvo::cli::eventTimestamp;
using halvo::cli::printEvent;
using halvo::testkit::printedBy;

// Sun Nov 22 07:01:02 2026 UTC.
constexpr std::time_t sundayMorning = 1795330862;
const std::string stamp = "[Sun Nov 22 07:01:02 2026]:";

// Runs every test in a known time zone.
class EventPrinterTest : public testing::Test {
  protected:
    void SetUp() override { useZone("UTC"); }
    void TearDown() override {
        unsetenv("TZ");
        tzset();
    }
    static void useZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
};

// Prints with the clock when `now` is empty.
std::string printed(std::uint32_t command, std::string_view payloadJson,
                    std::optional<std::time_t> now = sundayMorning) {
    const json::object payload = json::parse(payloadJson).as_object();
    return printedBy([&](std::FILE* out) {
        if (now) {
            printEvent(command, payload, out, *now);
        } else {
            printEvent(command, payload, out);
        }
    });
}

// The local time in brackets, or "-" when the time cannot be shown.
TEST_F(EventPrinterTest, TimestampIsTheLocalTimeInBrackets) {
    EXPECT_EQ(eventTimestamp(sundayMorning), stamp);
    EXPECT_EQ(eventTimestamp(0), "[Thu Jan  1 00:00:00 1970]:");
    EXPECT_EQ(eventTimestamp(253402300799), "[Fri Dec 31 23:59:59 9999]:");
    useZone("XYZ-3");
    EXPECT_EQ(eventTimestamp(sundayMorning), "[Sun Nov 22 10:01:02 2026]:");
    // Beyond the years that the broken-down time can hold.
    EXPECT_EQ(eventTimestamp(std::numeric_limits<std::time_t>::max()), "-");
    // A five-digit year does not fit the fixed 24-character layout.
    EXPECT_EQ(eventTimestamp(253402300800), "-");
    // Which still prints the event.
    EXPECT_EQ(printed(5, R"({"addr": "h", "port": 1, "state": "up"})",
                      std::numeric_limits<std::time_t>::max()),
              "- host h:1 is up\n");
}

struct EventCase {
    const char* title;
    std::uint32_t command;
    const char* payload;
    std::string expected; // empty: the event is dropped
};

TEST_F(EventPrinterTest, EventsPrintOneLineOrAreDroppedWithoutTheirKeys) {
    // clang-format off
    const EventCase cases[] = {
        {"device without peer", 4, R"({"id": 3, "name": "USB Keyboard", "state": "free"})", stamp + " device id:3 \"USB Keyboard\" got free\n"},
        {"device with peer", 4, R"({"id": 3, "name": "USB Keyboard", "state": "shared", "addr": "10.0.0.7"})", stamp + " device id:3 \"USB Keyboard\" got shared@10.0.0.7\n"},
        {"device with empty peer", 4, R"({"id": 3, "name": "Disk", "state": "shared", "addr": ""})", stamp + " device id:3 \"Disk\" got shared@\n"},
        {"device with peer of the wrong type", 4, R"({"id": 3, "name": "Disk", "state": "free", "addr": 7})", stamp + " device id:3 \"Disk\" got free\n"},
        {"host", 5, R"({"addr": "192.168.1.20", "port": 32999, "state": "connected"})", stamp + " host 192.168.1.20:32999 is connected\n"},
        {"host port is 32-bit", 5, R"({"addr": "h", "port": 70000, "state": "gone"})", stamp + " host h:70000 is gone\n"},
        {"daemon text with format characters", 5, R"({"addr": "%s%n", "port": 1, "state": "100% \"up\""})", stamp + " host %s%n:1 is 100% \"up\"\n"},
        {"daemon texts end at a NUL", 4, R"({"id": 3, "name": "Di\u0000sk", "state": "free\u0000", "addr": "\u0000h"})", stamp + " device id:3 \"Di\" got free@\n"},
        {"device without id", 4, R"({"name": "Disk", "state": "free"})", ""},
        {"device without name", 4, R"({"id": 3, "state": "free", "addr": "10.0.0.7"})", ""},
        {"device without state", 4, R"({"id": 3, "name": "Disk"})", ""},
        {"device id as text", 4, R"({"id": "3", "name": "Disk", "state": "free"})", ""},
        {"device name as number", 4, R"({"id": 3, "name": 1, "state": "free"})", ""},
        {"host without addr", 5, R"({"port": 1, "state": "up"})", ""},
        {"host without port", 5, R"({"addr": "h", "state": "up"})", ""},
        {"host without state", 5, R"({"addr": "h", "port": 1})", ""},
        {"host port as text", 5, R"({"addr": "h", "port": "1", "state": "up"})", ""},
        {"host addr as number", 5, R"({"addr": 5, "port": 1, "state": "up"})", ""},
        {"host keys under the device code", 4, R"({"addr": "h", "port": 1, "state": "up"})", ""},
        {"reply codes are no events", 0, R"({"id": 3, "name": "Disk", "state": "free"})", ""},
        {"the largest code", 0xffffffffu, R"({"id": 3, "name": "Disk", "state": "free"})", ""},
    };
    // clang-format on
    for (const EventCase& c : cases) {
        EXPECT_EQ(printed(c.command, c.payload), c.expected) << c.title;
    }
}

TEST_F(EventPrinterTest, WithoutAGivenTimeTheClockStampsTheLine) {
    const std::time_t before = std::time(nullptr);
    const std::string line = printed(5, R"({"addr": "h", "port": 1, "state": "up"})", std::nullopt);
    const std::time_t after = std::time(nullptr);
    const std::string tail = " host h:1 is up\n";
    EXPECT_TRUE(line == eventTimestamp(before) + tail || line == eventTimestamp(after) + tail)
        << line;
}

} // namespace
