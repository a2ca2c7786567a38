#include "rules/rule_tokenizer.h"
#include "util/utf8.h"

#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using halvo::rules::rule_parser_line;
using halvo::rules::TokenList;
using Words = std::vector<std::string>;

std::optional<Words> tokenize(std::string_view line, TokenList& tokens) {
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

TEST(RuleTokenizerTest, SplitsUnquotesUnescapesAndChecksUtf8) {
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
        // A quote left open fails only with text after it.
        {"share \"a b", std::nullopt},
        {"x\"  ", std::nullopt},
        {"share ab\"", Words{"share", "ab"}},
        {"a \"", Words{"a"}},
        // The final byte is a quote, albeit an escaped one: accepted.
        {"\"a\\\"", Words{"a\""}},
        // Words must be valid UTF-8.
        {"cl\xc3\xa9", Words{"cl\xc3\xa9"}},
        {"a \xff", std::nullopt},
        {"\"\xe0\x80\x80\"", std::nullopt},
        {"!\xed\xa0\x80", std::nullopt},
    };
    for (const TokenCase& c : cases) {
        TokenList tokens;
        EXPECT_EQ(tokenize(c.line, tokens), c.words) << c.line;
    }
}

// The tokenizer as the rule text has always been read, byte by byte, without
// the fast paths: the optimised one must split every line the same way.
std::optional<Words> referenceTokenize(std::string_view line) {
    const auto isBlank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    Words words;
    std::string word;
    bool inQuote = false;
    bool escaped = false;
    bool separator = false;
    for (std::size_t at = 0; at < line.size(); ++at) {
        char c = line[at];
        if (escaped) {
            word += c;
            escaped = false;
        } else if (c == '\\') {
            escaped = true;
        } else if (c == '"') {
            inQuote = !inQuote;
        } else if (isBlank(c) && !inQuote) {
            while (at + 1 < line.size() && isBlank(line[at + 1])) {
                c = line[++at];
            }
            separator = true;
        } else {
            word += c;
        }
        const bool last = at + 1 == line.size();
        if ((separator || last) && !word.empty()) {
            if (inQuote && last && c != '"') {
                return std::nullopt;
            }
            if (word.size() >= 2 && word[0] == '!') {
                words.emplace_back("!");
                word.erase(0, 1);
            }
            if (!halvo::util::isValidUtf8(word)) {
                return std::nullopt;
            }
            words.push_back(word);
            word.clear();
            separator = false;
        }
    }
    return words;
}

TEST(RuleTokenizerTest, MatchesTheByteByByteReading) {
    static const std::string_view pieces[] = {
        "a", "bc", "!", " ", "  ", "\t", "\"", "\\", "\xc3\xa9", "\xc3", "\xa9", "#", ",", "\r",
    };
    std::mt19937 random(1234);
    std::uniform_int_distribution<std::size_t> pick(0, std::size(pieces) - 1);
    std::uniform_int_distribution<int> length(1, 12);
    TokenList tokens; // reused, as the parser does
    for (int round = 0; round < 50000; ++round) {
        std::string line;
        for (int count = length(random); count > 0; --count) {
            line += pieces[pick(random)];
        }
        ASSERT_EQ(tokenize(line, tokens), referenceTokenize(line)) << '[' << line << ']';
    }
}

} // namespace
