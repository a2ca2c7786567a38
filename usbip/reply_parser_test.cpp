#include "usbip/reply_parser.h"

#include <gtest/gtest.h>

namespace halvo::usbip {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes header(std::uint16_t version, OpCode code, std::uint32_t status) {
    const std::uint32_t word = std::uint32_t{version} << 16 | static_cast<std::uint32_t>(code);
    Bytes bytes;
    for (std::uint32_t value : {word, status}) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<std::uint8_t>(value >> shift));
        }
    }
    return bytes;
}

DeviceRecord device(std::string busId, std::uint32_t speed, std::size_t interfaces) {
    DeviceRecord record;
    record.path = "/sys/devices/usb1/" + busId;
    record.busId = std::move(busId);
    record.busnum = 1;
    record.devnum = 4;
    record.speed = speed;
    record.vid = 0x0403;
    record.pid = 0x6001;
    record.numConfigurations = 1;
    for (std::size_t index = 0; index < interfaces; ++index) {
        record.interfaces.push_back({0xff, static_cast<std::uint8_t>(index), 0});
    }
    return record;
}

TEST(ReplyParserTest, ReadsOneReplyInAnyPiecesAndRefusesWhatAServerMustNotSend) {
    const std::vector<DeviceRecord> two = {device("1-1", 3, 2), device("2-1.4", 5, 0)};
    DeviceRecord imported = device("2-1.4", 5, 0);
    const Bytes importOk = encodeImportReply(imported);
    Bytes cutShort = encodeDeviceList(two);
    cutShort.pop_back();
    Bytes unterminated = importOk;
    std::fill_n(unterminated.begin() + 8 + 256, 32, 'x');
    imported.interfaces.clear();
    struct Case {
        const char* what;
        OpCode expected;
        Bytes bytes;
        std::string error;
        Status status;
        std::vector<DeviceRecord> devices;
        std::size_t left; // bytes not taken
        bool complete;
    };
    const Case cases[] = {
        {"list", OpCode::replyDeviceList, encodeDeviceList(two) + Bytes{9}, "", Status::ok, two, 1,
         true},
        {"empty list", OpCode::replyDeviceList, encodeDeviceList({}), "", Status::ok, {}, 0, true},
        {"list refused",
         OpCode::replyDeviceList,
         header(0x0111, OpCode::replyDeviceList, 1) + Bytes{0, 0, 0, 1},
         "",
         Status::notAvailable,
         {},
         4,
         true},
        {"import, then traffic not taken",
         OpCode::replyImport,
         importOk + Bytes{1, 2, 3},
         "",
         Status::ok,
         {imported},
         3,
         true},
        {"import refused",
         OpCode::replyImport,
         encodeImportReply(Status::deviceBusy),
         "",
         Status::deviceBusy,
         {},
         0,
         true},
        {"wrong version",
         OpCode::replyImport,
         header(0x0106, OpCode::replyImport, 0),
         "unsupported version 0x0106",
         Status::ok,
         {},
         0,
         false},
        {"another reply",
         OpCode::replyImport,
         encodeDeviceList({}),
         "reply 0x0005 where 0x0003 was due",
         Status::ok,
         {},
         4,
         false},
        {"count past the bound, no records follow",
         OpCode::replyDeviceList,
         header(0x0111, OpCode::replyDeviceList, 0) + Bytes{0xff, 0xff, 0xff, 0xff},
         "a list of 4294967295 devices, more than 4096",
         Status::ok,
         {},
         0,
         false},
        {"bus id without NUL",
         OpCode::replyImport,
         unterminated,
         "a device record's path or bus id without its terminating NUL",
         Status::ok,
         {},
         0,
         false},
        {"list cut short", OpCode::replyDeviceList, cutShort, "", Status::ok, {}, 0, false},
    };
    for (const Case& test : cases) {
        for (std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{4096}}) {
            ReplyParser parser(test.expected);
            std::size_t at = 0;
            while (parser.missing() > 0 && at < test.bytes.size()) {
                const std::size_t length = std::min(piece, test.bytes.size() - at);
                at += parser.feed(std::span(test.bytes).subspan(at, length));
            }
            const std::string where =
                std::string(test.what) + ", pieces of " + std::to_string(piece);
            EXPECT_EQ(parser.error(), test.error) << where;
            EXPECT_EQ(parser.complete(), test.complete) << where;
            EXPECT_EQ(test.bytes.size() - at, test.left) << where;
            if (test.complete) {
                EXPECT_EQ(parser.status(), test.status) << where;
                EXPECT_EQ(parser.devices(), test.devices) << where;
            }
        }
    }
}

} // namespace
} // namespace halvo::usbip
