#include "listings/connection_list.h"
#include "tests/support/stream_capture.h"

#include <boost/json/parse.hpp>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace {

namespace json = boost::json;
using halvo::listings::outputConnectionList;
using halvo::testkit::printedBy;

std::string printed(const std::string& replyJson) {
    const json::object reply = json::parse(replyJson).as_object();
    return printedBy([&](std::FILE* out) { outputConnectionList(reply, out); });
}

std::string listOf(const std::string& elements) {
    return R"({"connections": [)" + elements + "]}";
}

const std::string header = "Type\tIP/Name\t\tPort/PID\n";

TEST(ConnectionListTest, ReplyWithoutConnectionArrayPrintsNothing) {
    EXPECT_EQ(printed(R"({})"), "");
    EXPECT_EQ(printed(R"({"connections": "none"})"), "");
    EXPECT_EQ(printed(listOf("")), header);
}

struct LineCase {
    const char* element;
    const char* expectedLine;
};

// Names shorter than 8 bytes get a second tab; numbers are 16-bit values.
TEST(ConnectionListTest, LinesArePaddedByNameLengthInBytes) {
    const LineCase cases[] = {
        {R"({"type": "net", "addr": "10.0.0.7", "port": 32999})", "net\t10.0.0.7\t32999\n"},
        {R"({"type": "net", "addr": "10.0.07", "port": 32999})", "net\t10.0.07\t\t32999\n"},
        {R"({"type": "net", "addr": "", "port": 0})", "net\t\t\t0\n"},
        {R"({"type": "net", "addr": "fe80::1ff:fe23:4567:890a", "port": 443})",
         "net\tfe80::1ff:fe23:4567:890a\t443\n"},
        // "é" is two bytes: seven characters, eight bytes.
        {R"({"type": "rdesk", "app": "Viewér1", "pid": 812})", "rdesk\tViewér1\t812\n"},
        {R"({"type": "rdesk", "app": "%s%n", "pid": 812, "port": 1})", "rdesk\t%s%n\t\t812\n"},
        {R"({"type": "rdesk", "app": "Viewer", "pid": 70000})", "rdesk\tViewer\t\t4464\n"},
        // The name is printed up to a NUL but padded by its whole length.
        {R"({"type": "net", "addr": "10.0\u0000.0.7", "port": 1})", "net\t10.0\t1\n"},
    };
    for (const LineCase& c : cases) {
        EXPECT_EQ(printed(listOf(c.element)), header + c.expectedLine) << c.element;
    }
}

TEST(ConnectionListTest, MalformedElementsAreLeftOutAndTheRestPrintInOrder) {
    // clang-format off
    const char* const malformed[] = {
        R"({"addr": "10.0.0.7", "port": 1})", R"({"type": "Net", "addr": "10.0.0.7", "port": 1})",
        R"({"type": "tcp", "addr": "10.0.0.7", "port": 1})", R"({"type": 1, "addr": "10.0.0.7", "port": 1})",
        R"({"type": "net", "port": 1})", R"({"type": "net", "addr": "10.0.0.7"})",
        R"({"type": "net", "addr": 10, "port": 1})", R"({"type": "net", "addr": "10.0.0.7", "port": "1"})",
        // Each type reads its own keys only.
        R"({"type": "net", "app": "Viewer", "pid": 1})", R"({"type": "rdesk", "addr": "10.0.0.7", "port": 1})",
        R"("net")", R"(null)",
    };
    // clang-format on
    const std::string good = R"({"type": "rdesk", "app": "Viewer", "pid": 812},
                                {"type": "net", "addr": "192.168.1.20", "port": 32999})";
    for (const std::string element : malformed) {
        EXPECT_EQ(printed(listOf(element + "," + good + "," + element)),
                  header + "rdesk\tViewer\t\t812\nnet\t192.168.1.20\t32999\n")
            << element;
    }
}

} // namespace
