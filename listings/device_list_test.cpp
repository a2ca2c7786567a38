#include "listings/device_list.h"
#include "tests/support/stream_capture.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>

namespace {

namespace json = boost::json;
using halvo::listings::outputDeviceList;
using halvo::testkit::printedBy;

std::string printed(const json::object& reply) {
    return printedBy([&](std::FILE* out) { outputDeviceList(reply, out); });
}

// A well-formed device: id 3, a USB 2 root hub, free, not built in, no
// serial, and a key the table does not show.
json::object device(std::string_view port, const json::object& changes = {}) {
    json::object element{
        {"id", 3},           {"vid", 0x1d6b}, {"pid", 0x0002},   {"rev", 0x0510}, {"port", port},
        {"built-in", false}, {"name", "Hub"}, {"state", "free"}, {"serial", ""},  {"speed", "high"},
    };
    for (const auto& change : changes) {
        element[change.key()] = change.value();
    }
    return element;
}

json::object replyOf(json::array devices) {
    return json::object{{"devices", std::move(devices)}};
}

const std::string header = "ID\tVID: PID: REV\tPort\tDevice name and status\n";
// The header once ports reach 16 bytes.
const std::string twoTabs = "ID\tVID: PID: REV\tPort\t\tDevice name and status\n";
const std::string hubColumns = "3\t1d6b:0002:0510\t";

// Without a device array nothing; an empty one, the header only.
TEST(DeviceListTest, ReplyWithoutDeviceArrayPrintsNothing) {
    EXPECT_EQ(printed(json::object{}), "");
    EXPECT_EQ(printed(json::parse(R"({"devices": {"id": 1}})").as_object()), "");
    EXPECT_EQ(printed(replyOf({})), header);
}

struct WidthCase {
    const char* title;
    std::initializer_list<const char*> ports;
    std::string expected;
};

// The header's label sits one tab stop left of the rows' names once a port
// reaches 8 bytes, and only gains tabs from 16 bytes on.
TEST(DeviceListTest, PortColumnIsPaddedToTheWidestPort) {
    // clang-format off
    const WidthCase cases[] = {
        {"widest below 8 bytes", {"1-1", "2-1.4.3"}, header + hubColumns + "1-1\tHub /free/\n" + hubColumns + "2-1.4.3\tHub /free/\n"},
        {"widest 8 to 15 bytes", {"1-1", "20-1.4.3", "20-1.4.3.1.2.3"},
         header + hubColumns + "1-1\t\tHub /free/\n" + hubColumns + "20-1.4.3\tHub /free/\n" + hubColumns + "20-1.4.3.1.2.3\tHub /free/\n"},
        {"widest 16 to 23 bytes", {"1-1", "20-1.4.3", "usb-0000:00:14.0-9"},
         twoTabs + hubColumns + "1-1\t\t\tHub /free/\n" + hubColumns + "20-1.4.3\t\tHub /free/\n" + hubColumns + "usb-0000:00:14.0-9\tHub /free/\n"},
        {"widest 24 bytes", {"1-1", "pci-0000:00:14.0-usb-0:9"},
         "ID\tVID: PID: REV\tPort\t\t\tDevice name and status\n" + hubColumns + "1-1\t\t\t\tHub /free/\n" + hubColumns + "pci-0000:00:14.0-usb-0:9\tHub /free/\n"},
        // "→" is three bytes: "Hub→Pt" looks 6 wide but counts 8.
        {"multi-byte characters count in bytes", {"1-1", "Hub→Pt"}, header + hubColumns + "1-1\t\tHub /free/\n" + hubColumns + "Hub→Pt\tHub /free/\n"},
    };
    // clang-format on
    for (const WidthCase& c : cases) {
        json::array devices;
        for (const char* port : c.ports) {
            devices.push_back(device(port));
        }
        EXPECT_EQ(printed(replyOf(devices)), c.expected) << c.title;
    }
}

// Elements left out of the table still count in the width pass when they
// carry a string port; ones that cannot be read count as width 0.
TEST(DeviceListTest, SkippedElementsStillWidenThePortColumn) {
    EXPECT_EQ(printed(replyOf({device("1-1"), device("usb-0000:00:14.0-9", {{"id", "3"}})})),
              twoTabs + hubColumns + "1-1\t\t\tHub /free/\n");
    EXPECT_EQ(printed(replyOf(
                  {"usb-0000:00:14.0-9", nullptr, device("1-1", {{"port", 1e20}}), device("1-1")})),
              header + hubColumns + "1-1\tHub /free/\n");
}

struct RowCase {
    const char* title;
    json::object changes;
    std::string expectedRow;
};

TEST(DeviceListTest, RowsShowNumbersAndOnlyTheStatusPiecesPresent) {
    // clang-format off
    const RowCase cases[] = {
        {"built in", {{"built-in", true}}, hubColumns + "1-1\tHub /built-in, free/\n"},
        {"built-in as numbers", {{"built-in", -2}}, hubColumns + "1-1\tHub /built-in, free/\n"},
        {"address", {{"state", "shared"}, {"addr", "10.0.0.7"}}, hubColumns + "1-1\tHub /shared@10.0.0.7/\n"},
        {"empty address keeps its @", {{"addr", ""}}, hubColumns + "1-1\tHub /free@/\n"},
        {"serial", {{"serial", "A1B2"}}, hubColumns + "1-1\tHub /free, A1B2/\n"},
        {"empty address before serial", {{"addr", ""}, {"serial", "A1B2"}}, hubColumns + "1-1\tHub /free@, A1B2/\n"},
        {"everything", {{"built-in", true}, {"state", "in use"}, {"addr", "host.lan"}, {"serial", "S/N %s 7"}},
         hubColumns + "1-1\tHub /built-in, in use@host.lan, S/N %s 7/\n"},
        // Daemon text is never a format.
        {"format characters", {{"port", "%n"}, {"name", "%s%n"}, {"state", "%x"}, {"addr", "%p%%"}, {"serial", "%s"}},
         "3\t1d6b:0002:0510\t%n\t%s%n /%x@%p%%, %s/\n"},
        {"wide ids keep every digit", {{"id", 4294967295u}, {"vid", 0xffffffffu}, {"rev", 0x12345}},
         "4294967295\tffffffff:0002:12345\t1-1\tHub /free/\n"},
    };
    // clang-format on
    for (const RowCase& c : cases) {
        EXPECT_EQ(printed(replyOf({device("1-1", c.changes)})), header + c.expectedRow) << c.title;
    }
}

// Daemon texts are printed up to a NUL, as "%s" prints them; widths and
// emptiness still count every byte.
TEST(DeviceListTest, TextsEndAtANulButCountInFull) {
    using namespace std::string_view_literals;
    const json::object odd = device(
        "1-1\0-1.4.3.2.1.5"sv,
        {{"name", "Hu\0b"sv}, {"state", "free\0x"sv}, {"addr", "\0h"sv}, {"serial", "\0S"sv}});
    EXPECT_EQ(printed(replyOf({odd})), twoTabs + hubColumns + "1-1\tHu /free@, /\n");
}

struct SkipCase {
    const char* key;
    std::optional<json::value> value; // none: the key is removed
};

TEST(DeviceListTest, MalformedElementsAreLeftOutAndTheRestPrint) {
    // clang-format off
    const SkipCase cases[] = {
        {"id", std::nullopt}, {"id", "3"}, {"id", true}, {"vid", std::nullopt}, {"vid", nullptr},
        {"pid", std::nullopt}, {"pid", json::array{}}, {"rev", std::nullopt}, {"rev", "0x0510"},
        {"built-in", std::nullopt}, {"built-in", "true"}, {"port", std::nullopt}, {"port", 1},
        {"serial", std::nullopt}, {"serial", 1234}, {"serial", nullptr}, {"name", std::nullopt},
        {"name", json::object{}}, {"state", std::nullopt}, {"state", false}, {"addr", 10},
        {"addr", nullptr}};
    // clang-format on
    const json::object good = device("1-1", {{"id", 9}});
    const std::string goodRow = "9\t1d6b:0002:0510\t1-1\tHub /free/\n";
    for (const SkipCase& c : cases) {
        json::object bad = device("1-1");
        if (c.value) {
            bad[c.key] = *c.value;
        } else {
            bad.erase(c.key);
        }
        EXPECT_EQ(printed(replyOf({bad, good, bad})), header + goodRow)
            << c.key << " = " << (c.value ? json::serialize(*c.value) : "(absent)");
    }
    EXPECT_EQ(printed(replyOf({"device", 3, json::array{good}, good})), header + goodRow);
}

// Long texts and long runs of padding cross the output block's boundaries.
TEST(DeviceListTest, LongTextsAndManyRowsComeOutWhole) {
    const std::string longName(40000, 'n');
    const std::string longPort(8 * 5000, 'p');
    json::array devices{device(longPort, {{"name", longName}})};
    std::string expected = "ID\tVID: PID: REV\tPort\t" + std::string(4999, '\t') +
                           "Device name and status\n" + hubColumns + longPort + "\t" + longName +
                           " /free/\n";
    for (int id = 0; id < 3000; ++id) {
        devices.push_back(device("1-1", {{"id", id}}));
        expected += std::to_string(id) + "\t1d6b:0002:0510\t1-1\t" + std::string(5000, '\t') +
                    "Hub /free/\n";
    }
    EXPECT_EQ(printed(replyOf(devices)), expected);
}

} // namespace
