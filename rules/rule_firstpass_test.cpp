#include "rules/rule_firstpass.h"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

using halvo::rules::LinePoint;
using halvo::rules::rule_parser_firstpass;
using halvo::rules::textOffsetsOf;
using Lines = std::vector<std::string>;

Lines firstPass(std::string_view text) {
    Lines lines;
    rule_parser_firstpass(text, [&lines](std::string_view line) {
        lines.emplace_back(line);
        return true;
    });
    return lines;
}

// The first pass as rule files have always been read, byte by byte: the
// scanning one must cut every text the same way.
Lines referenceFirstPass(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    Lines lines;
    std::string line;
    bool inQuote = false;
    bool inComment = false;
    const auto endLine = [&] {
        if (!line.empty()) {
            lines.push_back(line);
            line.clear();
        }
        inComment = false;
    };
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '\0' || c == '\n') {
            endLine();
        } else if (at + 1 == text.size()) {
            line += c;
            endLine();
        } else if (isBlank(c) && line.empty()) {
        } else if (c == '#' && !inQuote) {
            inComment = true;
        } else if (inComment) {
        } else if (c == '\\' && text[at + 1] == '\n') {
            ++at;
        } else {
            inQuote = inQuote != (c == '"');
            line += c;
        }
    }
    return lines;
}

TEST(RuleFirstPassTest, MatchesTheByteByByteReading) {
    static const std::string_view pieces[] = {
        "share", "x",  " ",    "\t",   "\n",       std::string_view("\0", 1), "#",
        "\"",    "\\", "\\\n", "\r\n", "\xc3\xa9", "aaaaaaaaaaaaaaaaaaaa",
    };
    std::mt19937 random(4321);
    std::uniform_int_distribution<std::size_t> pick(0, std::size(pieces) - 1);
    std::uniform_int_distribution<int> length(0, 30);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (int count = length(random); count > 0; --count) {
            text += pieces[pick(random)];
        }
        const Lines lines = firstPass(text);
        ASSERT_EQ(lines, referenceFirstPass(text)) << testing::PrintToString(text);
        // Every byte of a line traces back to the same byte of the text.
        std::vector<LinePoint> points;
        std::string bytes;
        for (std::size_t index = 0; index < lines.size(); ++index) {
            for (std::size_t i = 0; i < lines[index].size(); ++i) {
                points.push_back({index, i});
            }
            bytes += lines[index];
        }
        const std::vector<std::size_t> offsets = textOffsetsOf(text, points);
        ASSERT_EQ(offsets.size(), bytes.size());
        for (std::size_t i = 0; i < offsets.size(); ++i) {
            ASSERT_LT(offsets[i], text.size());
            ASSERT_EQ(text[offsets[i]], bytes[i]);
            ASSERT_TRUE(i == 0 || offsets[i] > offsets[i - 1]);
        }
    }
}

TEST(RuleFirstPassTest, StopsWhenTheReaderSaysSo) {
    int calls = 0;
    EXPECT_FALSE(
        rule_parser_firstpass("a\nb\nc\n", [&calls](std::string_view) { return ++calls < 2; }));
    EXPECT_EQ(calls, 2);
}

} // namespace
