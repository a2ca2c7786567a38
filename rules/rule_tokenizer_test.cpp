#include "rules/rule_tokenizer.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

using halvo::rules::rule_parser_line;
using halvo::rules::TokenList;
using Words = std::vector<std::string>;

std::optional<Words> tokenize(std::string_view line) {
    TokenList tokens;
    if (!rule_parser_line(line, tokens)) {
        return std::nullopt;
    }
    Words words;
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        words.emplace_back(tokens[i]);
    }
    return words;
}

struct TokenCase {
    std::string_view line;
    std::optional<Words> words; // nullopt: the line fails
};

TEST(RuleTokenizerTest, SplitsUnquotesAndUnescapes) {
    const TokenCase cases[] = {
        {"share  host\t\"a b\"", Words{"share", "host", "a b"}},
        {"a\"b c\"d", Words{"ab cd"}},
        {"x\\ y\\\\z\\\"", Words{"x y\\z\""}},
        {"a\\", Words{"a"}},
        // Whitespace after empty quotes is no separator until a word is out.
        {"name is \"\" share", Words{"name", "is", "s", "hare"}},
        {"\"\"", Words{}},
        // A single "!" is split off, after unquoting or unescaping.
        {"!share !", Words{"!", "share", "!"}},
        {"\"!x\" \\!y", Words{"!", "x", "!", "y"}},
        {"!!x", Words{"!", "!x"}},
    };
    for (const TokenCase& c : cases) {
        EXPECT_EQ(tokenize(c.line), c.words) << c.line;
    }
}

TEST(RuleTokenizerTest, QuoteLeftOpenFailsOnlyWithTextAfterIt) {
    const TokenCase cases[] = {
        {"share \"a b", std::nullopt},
        {"x\"  ", std::nullopt},
        {"share ab\"", Words{"share", "ab"}},
        {"a \"", Words{"a"}},
        // The final byte is a quote, albeit an escaped one: accepted.
        {"\"a\\\"", Words{"a\""}},
    };
    for (const TokenCase& c : cases) {
        EXPECT_EQ(tokenize(c.line), c.words) << c.line;
    }
}

TEST(RuleTokenizerTest, WordsMustBeValidUtf8) {
    const TokenCase cases[] = {
        {"cl\xc3\xa9", Words{"cl\xc3\xa9"}},
        {"a \xff", std::nullopt},
        {"\"\xe0\x80\x80\"", std::nullopt},
        {"!\xed\xa0\x80", std::nullopt},
    };
    for (const TokenCase& c : cases) {
        EXPECT_EQ(tokenize(c.line), c.words) << c.line;
    }
}

TEST(RuleTokenizerTest, ListIsReusedAcrossLines) {
    TokenList tokens;
    ASSERT_TRUE(rule_parser_line("a much longer first line", tokens));
    ASSERT_TRUE(rule_parser_line("b c", tokens));
    ASSERT_EQ(tokens.size(), 2u);
    EXPECT_EQ(tokens[0], "b");
    EXPECT_EQ(tokens[1], "c");
}

} // namespace
