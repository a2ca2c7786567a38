#include "rules/id_list.h"

#include <climits>
#include <gtest/gtest.h>
#include <vector>

namespace {

using halvo::rules::rule_parser_triple2values;
using Numbers = std::vector<std::uint64_t>;

Numbers split(std::string_view value) {
    std::array<std::uint64_t, 3> numbers{};
    const std::size_t count = rule_parser_triple2values(value, numbers);
    return Numbers(numbers.begin(), numbers.begin() + static_cast<std::ptrdiff_t>(count));
}

struct IdCase {
    std::string_view value;
    Numbers numbers; // empty: refused
};

TEST(IdListTest, ReadsComponentsAsStrtoullInBase16) {
    // clang-format off
    const IdCase cases[] = {
        {"1", {1}}, {"0781:5567:0110", {0x781, 0x5567, 0x110}}, {"0X1F", {0x1f}}, {"0xaBc", {0xabc}},
        {" +a", {10}}, {"-1", {ULLONG_MAX}}, {"fffffffffffffffffffff", {ULLONG_MAX}}, {"", {0}},
        {":", {0, 0}}, {"1::2", {1, 0, 2}},
        // Refused.
        {"1:2:3:4", {}}, {"::::", {}}, {"x1", {}}, {"0x", {}}, {" ", {}}, {"1 ", {}}, {"1:-", {}},
    };
    // clang-format on
    for (const IdCase& c : cases) {
        EXPECT_EQ(split(c.value), c.numbers) << '"' << c.value << '"';
    }
}

} // namespace
