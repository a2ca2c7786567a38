#include "util/json_fields.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace {

namespace json = boost::json;
using halvo::util::getFlag;
using halvo::util::getString;
using halvo::util::getU16;
using halvo::util::getU32;

json::object parseObject(std::string_view text) {
    return json::parse(text).as_object();
}

struct U32Case {
    const char* json;
    std::optional<std::uint32_t> expected;
};

TEST(JsonFieldsTest, NumbersWrapModulo2To32AndTruncateFractions) {
    // clang-format off
    const U32Case cases[] = {
        {R"({"k": 3})", 3u}, {R"({"k": -1})", 4294967295u}, {R"({"k": 4294967296})", 0u},
        {R"({"k": 4294967297})", 1u}, {R"({"k": 18446744073709551615})", 4294967295u},
        {R"({"k": 2.9})", 2u}, {R"({"k": -2.9})", 4294967294u}, {R"({"k": 1e300})", 0u},
        {R"({"k": true})", std::nullopt}, {R"({"k": "3"})", std::nullopt},
        {R"({"k": null})", std::nullopt}, {R"({})", std::nullopt}};
    // clang-format on
    for (const U32Case& c : cases) {
        EXPECT_EQ(getU32(parseObject(c.json), "k"), c.expected) << c.json;
    }
}

// 16-bit reads keep the low bits; flags take booleans and numbers; strings
// are only JSON strings.
TEST(JsonFieldsTest, OtherReadsTakeTheirOwnTypes) {
    EXPECT_EQ(getU16(parseObject(R"({"k": 70000})"), "k"), std::uint16_t{4464});
    EXPECT_EQ(getU16(parseObject(R"({"k": false})"), "k"), std::nullopt);
    EXPECT_EQ(getFlag(parseObject(R"({"k": true})"), "k"), true);
    EXPECT_EQ(getFlag(parseObject(R"({"k": false})"), "k"), false);
    EXPECT_EQ(getFlag(parseObject(R"({"k": 0})"), "k"), false);
    EXPECT_EQ(getFlag(parseObject(R"({"k": -7})"), "k"), true);
    EXPECT_EQ(getFlag(parseObject(R"({"k": 0.5})"), "k"), true);
    EXPECT_EQ(getFlag(parseObject(R"({"k": "true"})"), "k"), std::nullopt);
    EXPECT_EQ(getString(parseObject(R"({"k": "a\u0000b"})"), "k"), std::string_view("a\0b", 3));
    EXPECT_EQ(getString(parseObject(R"({"k": 1})"), "k"), std::nullopt);
}

} // namespace
