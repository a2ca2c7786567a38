#include "tests/support/stream_capture.h"
#include "util/text_buffer.h"

#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace {

using halvo::util::TextBuffer;
using namespace std::string_view_literals;

std::string written(const std::function<void(TextBuffer&)>& write) {
    return halvo::testkit::printedBy([&](std::FILE* out) {
        TextBuffer buffer(out);
        write(buffer);
    });
}

TEST(TextBufferTest, CStringStopsAtTheFirstNul) {
    const struct {
        std::string_view text;
        std::string_view expected;
    } cases[] = {
        {"plain"sv, "plain"sv}, {"ab\0cd\0e"sv, "ab"sv}, {"\0ab"sv, ""sv}, {"ab\0"sv, "ab"sv}};
    for (const auto& c : cases) {
        EXPECT_EQ(written([&](TextBuffer& b) { b.cString(c.text); }), c.expected);
    }
    EXPECT_EQ(written([](TextBuffer& b) { b.text("a\0b"sv); }), "a\0b"sv);
}

TEST(TextBufferTest, NumbersAsPrintfWritesThem) {
    const struct {
        std::uint32_t value;
        int width;
        const char* expected;
    } cases[] = {
        {0xef, 4, "00ef"}, {0x12345, 4, "12345"}, {0, 1, "0"}, {0xffffffff, 2, "ffffffff"}};
    for (const auto& c : cases) {
        EXPECT_EQ(written([&](TextBuffer& b) { b.hex(c.value, c.width); }), c.expected);
    }
    EXPECT_EQ(written([](TextBuffer& b) { b.decimal(4294967295ul); }), "4294967295");
}

// Pieces smaller than, equal to and larger than a block keep their order
// whichever way they reach the stream.
TEST(TextBufferTest, PiecesOfEverySizeKeepTheirOrder) {
    const std::string big(40000, 'b');
    const std::string block(16 * 1024, 'k');
    std::string expected;
    const std::string out = written([&](TextBuffer& b) {
        for (int round = 0; round < 3; ++round) {
            b.literal("<");
            b.text(big);
            b.repeat('\t', 20000);
            b.decimal(static_cast<unsigned long>(round));
            b.text(block);
            b.character('>');
            expected += "<" + big + std::string(20000, '\t') + std::to_string(round) + block + ">";
        }
    });
    EXPECT_EQ(out, expected);
}

} // namespace
