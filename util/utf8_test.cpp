#include "util/utf8.h"

#include <gtest/gtest.h>

namespace {

struct Utf8Case {
    std::string_view bytes;
    bool valid;
};

TEST(Utf8Test, AcceptsWellFormedAndRefusesMalformedSequences) {
    using namespace std::string_view_literals;
    const Utf8Case cases[] = {
        {""sv, true},
        {"plain ascii\0with nul"sv, true},
        {"\xC3\xA9"sv, true},              // é
        {"\xE2\x82\xAC"sv, true},          // €
        {"\xF0\x9F\x98\x80"sv, true},      // 😀
        {"\xF4\x8F\xBF\xBF"sv, true},      // U+10FFFF
        {"\xC0\xAF"sv, false},             // overlong '/'
        {"\xE0\x80\xAF"sv, false},         // overlong
        {"\xED\xA0\x80"sv, false},         // surrogate
        {"\xF4\x90\x80\x80"sv, false},     // above U+10FFFF
        {"\xF8\x88\x80\x80\x80"sv, false}, // five-byte form
        {"\x80"sv, false},                 // stray continuation
        {"\xE2\x82"sv, false},             // truncated at the end
        {"\xE2\x28\xA1"sv, false},         // bad second byte
        {"\xF0\x9F\x98\x28"sv, false},     // bad last byte
    };
    for (const Utf8Case& c : cases) {
        EXPECT_EQ(halvo::util::isValidUtf8(c.bytes), c.valid) << testing::PrintToString(c.bytes);
    }
}

} // namespace
