#include "usbip/request_parser.h"

#include <gtest/gtest.h>

namespace halvo::usbip {
namespace {

std::string header(std::uint16_t version, std::uint16_t code) {
    const std::uint32_t word = std::uint32_t{version} << 16 | code;
    std::string bytes(8, '\0');
    for (std::size_t index = 0; index < 4; ++index) {
        bytes[index] = static_cast<char>(word >> (24 - 8 * index));
    }
    return bytes;
}

std::string busId(std::string_view text) {
    std::string field(text);
    field.resize(kBusIdSize, '\0');
    return field;
}

// Feeds `bytes` in pieces of `piece` bytes until the parser wants no more;
// what it did not take is left in `bytes`.
RequestParser parse(std::string& bytes, std::size_t piece) {
    RequestParser parser;
    while (parser.missing() > 0 && !bytes.empty()) {
        std::string_view chunk(bytes.data(), std::min(piece, bytes.size()));
        std::size_t taken = parser.feed(
            std::span(reinterpret_cast<const std::uint8_t*>(chunk.data()), chunk.size()));
        bytes.erase(0, taken);
    }
    return parser;
}

TEST(RequestParserTest, ReadsOneRequestInAnyPiecesAndRefusesMalformedOnes) {
    struct Case {
        const char* what;
        std::string bytes;
        std::string busId;   // of the request, when one is expected
        std::string error;   // when the request is refused
        std::size_t missing; // bytes still wanted
        std::size_t left;    // bytes not taken
    };
    const std::string import = header(0x0111, 0x8003) + busId("1-2.3");
    const Case cases[] = {
        {"device list", header(0x0111, 0x8005), "", "", 0, 0},
        {"import, then traffic not taken", import + "URB", "1-2.3", "", 0, 3},
        {"wrong version", header(0x0100, 0x8005), "", "unsupported version 0x0100", 0, 0},
        {"unknown code", header(0x0111, 0x8004) + "rest", "", "unknown operation 0x8004", 0, 4},
        {"bus id without NUL", header(0x0111, 0x8003) + std::string(32, 'x'), "",
         "bus id without its terminating NUL", 0, 0},
        {"empty bus id", header(0x0111, 0x8003) + busId(""), "", "empty bus id", 0, 0},
        {"short bus id", header(0x0111, 0x8003) + "1-2", "", "", 29, 0},
        {"short header", header(0x0111, 0x8003).substr(0, 5), "", "", 3, 0},
    };
    for (const Case& test : cases) {
        for (std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{64}}) {
            std::string bytes = test.bytes;
            RequestParser parser = parse(bytes, piece);
            const std::string where =
                std::string(test.what) + ", pieces of " + std::to_string(piece);
            EXPECT_EQ(parser.error(), test.error) << where;
            EXPECT_EQ(parser.missing(), test.missing) << where;
            EXPECT_EQ(bytes.size(), test.left) << where;
            const bool complete = test.error.empty() && test.missing == 0;
            ASSERT_EQ(parser.request().has_value(), complete) << where;
            if (complete) {
                EXPECT_EQ(parser.request()->busId, test.busId) << where;
            }
        }
    }
}

} // namespace
} // namespace halvo::usbip
