#include "listings/device_list.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace {

namespace json = boost::json;
using halvo::listings::outputDeviceList;

std::string printed(const json::object& reply) {
    char* data = nullptr;
    std::size_t size = 0;
    std::FILE* out = open_memstream(&data, &size);
    outputDeviceList(reply, out);
    std::fclose(out);
    std::string text(data, size);
    std::free(data);
    return text;
}

// A well-formed device: id 3, a USB 2 root hub, free, not built in, no serial.
json::object device(std::string_view port) {
    return json::object{
        {"id", 3},         {"vid", 0x1d6b},      {"pid", 0x0002},  {"rev", 0x0510},
        {"port", port},    {"built-in", false},  {"name", "Hub"},  {"state", "free"},
        {"serial", ""},
    };
}

json::object replyOf(json::array devices) {
    return json::object{{"devices", std::move(devices)}};
}

const std::string header = "ID\tVID: PID: REV\tPort\tDevice name and status\n";

TEST(DeviceListTest, ReplyWithoutDeviceArrayPrintsNothing) {
    EXPECT_EQ(printed(json::object{}), "");
    EXPECT_EQ(printed(json::parse(R"({"devices": {"id": 1}})").as_object()), "");
    EXPECT_EQ(printed(json::parse(R"({"devices": null})").as_object()), "");
}

TEST(DeviceListTest, EmptyDeviceArrayPrintsTheHeaderOnly) {
    EXPECT_EQ(printed(replyOf({})), header);
}

struct WidthCase {
    const char* title;
    json::array ports;
    std::string expected;
};

// The header's label sits one tab stop left of the rows' names once a port
// reaches 8 bytes, and only gains tabs from 16 bytes on.
TEST(DeviceListTest, PortColumnIsPaddedToTheWidestPort) {
    const WidthCase cases[] = {
        {"widest below 8 bytes",
         {"1-1", "2-1.4.3"},
         header + "3\t1d6b:0002:0510\t1-1\tHub /free/\n"
                  "3\t1d6b:0002:0510\t2-1.4.3\tHub /free/\n"},
        {"widest 8 to 15 bytes",
         {"1-1", "20-1.4.3", "20-1.4.3.1.2.3"},
         header + "3\t1d6b:0002:0510\t1-1\t\tHub /free/\n"
                  "3\t1d6b:0002:0510\t20-1.4.3\tHub /free/\n"
                  "3\t1d6b:0002:0510\t20-1.4.3.1.2.3\tHub /free/\n"},
        {"widest 16 to 23 bytes",
         {"1-1", "20-1.4.3", "usb-0000:00:14.0-9"},
         "ID\tVID: PID: REV\tPort\t\tDevice name and status\n"
         "3\t1d6b:0002:0510\t1-1\t\t\tHub /free/\n"
         "3\t1d6b:0002:0510\t20-1.4.3\t\tHub /free/\n"
         "3\t1d6b:0002:0510\tusb-0000:00:14.0-9\tHub /free/\n"},
        {"widest 24 bytes",
         {"1-1", "pci-0000:00:14.0-usb-0:9"},
         "ID\tVID: PID: REV\tPort\t\t\tDevice name and status\n"
         "3\t1d6b:0002:0510\t1-1\t\t\t\tHub /free/\n"
         "3\t1d6b:0002:0510\tpci-0000:00:14.0-usb-0:9\tHub /free/\n"},
        // "→" is three bytes: "Hub→Pt" looks 6 wide but counts 8.
        {"multi-byte characters count in bytes",
         {"1-1", "Hub→Pt"},
         header + "3\t1d6b:0002:0510\t1-1\t\tHub /free/\n"
                  "3\t1d6b:0002:0510\tHub→Pt\tHub /free/\n"},
    };
    for (const WidthCase& c : cases) {
        json::array devices;
        for (const json::value& port : c.ports) {
            devices.push_back(device(port.as_string()));
        }
        EXPECT_EQ(printed(replyOf(devices)), c.expected) << c.title;
    }
}

// Elements left out of the table still count in the width pass when they
// carry a string port; ones that cannot be read count as width 0.
TEST(DeviceListTest, SkippedElementsStillWidenThePortColumn) {
    json::object idAsText = device("usb-0000:00:14.0-9");
    idAsText["id"] = "3";
    json::object portAsNumber = device("1-1");
    portAsNumber["port"] = 123456789012345678;

    EXPECT_EQ(printed(replyOf({device("1-1"), idAsText})),
              "ID\tVID: PID: REV\tPort\t\tDevice name and status\n"
              "3\t1d6b:0002:0510\t1-1\t\t\tHub /free/\n");
    EXPECT_EQ(printed(replyOf({"usb-0000:00:14.0-9", 42, nullptr, portAsNumber, device("1-1")})),
              header + "3\t1d6b:0002:0510\t1-1\tHub /free/\n");
}

struct StatusCase {
    const char* title;
    json::object changes;
    std::string expectedStatus;
};

TEST(DeviceListTest, StatusShowsOnlyThePiecesThatArePresent) {
    const StatusCase cases[] = {
        {"state alone", {}, "/free/"},
        {"built in", {{"built-in", true}}, "/built-in, free/"},
        {"built-in as non-zero number", {{"built-in", -2}}, "/built-in, free/"},
        {"built-in as zero", {{"built-in", 0}}, "/free/"},
        {"address", {{"state", "shared"}, {"addr", "10.0.0.7"}}, "/shared@10.0.0.7/"},
        {"empty address keeps its @", {{"addr", ""}}, "/free@/"},
        {"serial", {{"serial", "A1B2"}}, "/free, A1B2/"},
        {"empty address before serial", {{"addr", ""}, {"serial", "A1B2"}}, "/free@, A1B2/"},
        {"everything",
         {{"built-in", true}, {"state", "in use"}, {"addr", "host.lan"}, {"serial", "S/N 7"}},
         "/built-in, in use@host.lan, S/N 7/"},
    };
    for (const StatusCase& c : cases) {
        json::object element = device("1-1");
        for (const auto& change : c.changes) {
            element[change.key()] = change.value();
        }
        EXPECT_EQ(printed(replyOf({element})),
                  header + "3\t1d6b:0002:0510\t1-1\tHub " + c.expectedStatus + "\n")
            << c.title;
    }
}

struct NumberCase {
    const char* title;
    json::object numbers;
    std::string expectedColumns;
};

TEST(DeviceListTest, IdsPrintInDecimalAndUsbIdsInHexOfAtLeastFourDigits) {
    const NumberCase cases[] = {
        {"zeros", {{"id", 0}, {"vid", 0}, {"pid", 0}, {"rev", 0}}, "0\t0000:0000:0000"},
        {"lowercase", {{"id", 12}, {"vid", 0xABCD}, {"pid", 0xEF}, {"rev", 1}}, "12\tabcd:00ef:0001"},
        {"wide revision", {{"rev", 0x12345}}, "3\t1d6b:0002:12345"},
        {"largest",
         {{"id", 4294967295u}, {"vid", 4294967295u}, {"pid", 0x10000}, {"rev", 0x0510}},
         "4294967295\tffffffff:10000:0510"},
        {"negative wraps", {{"id", -1}}, "4294967295\t1d6b:0002:0510"},
        {"fraction truncates", {{"id", 7.9}}, "7\t1d6b:0002:0510"},
    };
    for (const NumberCase& c : cases) {
        json::object element = device("1-1");
        for (const auto& change : c.numbers) {
            element[change.key()] = change.value();
        }
        EXPECT_EQ(printed(replyOf({element})), header + c.expectedColumns + "\t1-1\tHub /free/\n")
            << c.title;
    }
}

struct SkipCase {
    const char* key;
    // The key's replacement; an empty optional removes the key.
    std::optional<json::value> value;
};

TEST(DeviceListTest, MalformedElementsAreLeftOutAndTheRestPrint) {
    const SkipCase cases[] = {
        {"id", std::nullopt},        {"id", "3"},
        {"id", true},                {"vid", std::nullopt},
        {"vid", nullptr},            {"pid", std::nullopt},
        {"pid", json::array{}},      {"rev", std::nullopt},
        {"rev", "0x0510"},           {"built-in", std::nullopt},
        {"built-in", "true"},        {"port", std::nullopt},
        {"port", 1},                 {"serial", std::nullopt},
        {"serial", 1234},            {"serial", nullptr},
        {"name", std::nullopt},      {"name", json::object{}},
        {"state", std::nullopt},     {"state", false},
        {"addr", 10},                {"addr", nullptr},
    };
    json::object good = device("1-1");
    good["id"] = 9;
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

TEST(DeviceListTest, RowsKeepArrayOrderAndOtherKeysAreIgnored) {
    json::object first = device("1-1");
    first["id"] = 20;
    first["speed"] = "high";
    json::object second = device("1-2");
    second["id"] = 10;
    EXPECT_EQ(printed(replyOf({first, second})),
              header + "20\t1d6b:0002:0510\t1-1\tHub /free/\n"
                       "10\t1d6b:0002:0510\t1-2\tHub /free/\n");
}

// Long texts and long runs of padding cross the output block's boundaries.
TEST(DeviceListTest, LongTextsAndManyRowsComeOutWhole) {
    const std::string longName(40000, 'n');
    const std::string longPort(8 * 5000, 'p');
    json::object wide = device(longPort);
    wide["name"] = longName;

    json::array devices{wide};
    std::string expected = "ID\tVID: PID: REV\tPort\t" + std::string(4999, '\t') +
                           "Device name and status\n" + "3\t1d6b:0002:0510\t" + longPort + "\t" +
                           longName + " /free/\n";
    for (int id = 0; id < 3000; ++id) {
        json::object row = device("1-1");
        row["id"] = id;
        devices.push_back(row);
        expected += std::to_string(id) + "\t1d6b:0002:0510\t1-1\t" + std::string(5000, '\t') +
                    "Hub /free/\n";
    }
    EXPECT_EQ(printed(replyOf(devices)), expected);
}

} // namespace
