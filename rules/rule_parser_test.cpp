// The golden corpus under tests/data/rules:
//   parse/NAME.rules   rule text that parses,
//   parse/NAME.json    the records it gives,
//   parse/NAME.print   those records as the printer writes them back,
//   parse/NAME.reparse.json  what the printed form reads back as, where the
//                      printer cannot keep a value (default: NAME.json);
//   bad/NAME.rules     rule text that fails,
//   bad/NAME.err       the exact message on stderr.
// The rule checker's parser must agree with the loader's on every case.
#include "rules/rule_parser.h"
#include "tests/support/files.h"
#include "tests/support/rule_printing.h"

#include <algorithm>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using halvo::rules::parseRuleTextDetailed;
using halvo::rules::rule_parser_run;
using halvo::rules::RuleTextReport;
using halvo::testkit::printRules;
using halvo::testkit::readFile;

const fs::path corpus = fs::path(HALVO_TEST_DATA_DIR) / "rules";

std::vector<std::string> caseNames(const char* folder) {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(corpus / folder)) {
        if (entry.path().extension() == ".rules") {
            names.push_back(entry.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

json::array readRecords(const fs::path& path) {
    return json::parse(readFile(path)).as_array();
}

struct ParseRun {
    std::optional<json::array> records;
    std::string err;
};

ParseRun parseCapturing(const std::string& text) {
    testing::internal::CaptureStderr();
    ParseRun run;
    run.records = rule_parser_run(text);
    run.err = testing::internal::GetCapturedStderr();
    return run;
}

class GoodRuleText : public testing::TestWithParam<std::string> {};

TEST_P(GoodRuleText, ParsesPrintsAndReadsBack) {
    const fs::path stem = corpus / "parse" / GetParam();
    const json::array expected = readRecords(stem.string() + ".json");

    const ParseRun parsed = parseCapturing(readFile(stem.string() + ".rules"));
    EXPECT_EQ(parsed.err, "");
    ASSERT_TRUE(parsed.records.has_value());
    EXPECT_EQ(*parsed.records, expected) << json::serialize(*parsed.records);
    // The rule checker's parser accepts the same text with the same records.
    const RuleTextReport checked = parseRuleTextDetailed(readFile(stem.string() + ".rules"));
    ASSERT_TRUE(checked.records.has_value()) << checked.error->message;
    EXPECT_EQ(*checked.records, expected);

    const std::string printed = printRules(*parsed.records);
    EXPECT_EQ(printed, readFile(stem.string() + ".print"));

    const fs::path reparseFile = stem.string() + ".reparse.json";
    const json::array expectedBack = fs::exists(reparseFile) ? readRecords(reparseFile) : expected;
    const ParseRun reparsed = parseCapturing(printed);
    ASSERT_TRUE(reparsed.records.has_value()) << reparsed.err;
    EXPECT_EQ(*reparsed.records, expectedBack) << json::serialize(*reparsed.records);
}

INSTANTIATE_TEST_SUITE_P(Corpus, GoodRuleText, testing::ValuesIn(caseNames("parse")),
                         [](const auto& test) { return test.param; });

class BadRuleText : public testing::TestWithParam<std::string> {};

TEST_P(BadRuleText, FailsWithTheRuleNumber) {
    const fs::path stem = corpus / "bad" / GetParam();
    const ParseRun parsed = parseCapturing(readFile(stem.string() + ".rules"));
    EXPECT_FALSE(parsed.records.has_value());
    EXPECT_EQ(parsed.err, readFile(stem.string() + ".err"));
    // The rule checker's parser fails at the same rule.
    const RuleTextReport checked = parseRuleTextDetailed(readFile(stem.string() + ".rules"));
    ASSERT_FALSE(checked.records.has_value());
    EXPECT_EQ("Parsing error at rule #" + std::to_string(checked.error->ruleNumber) + "\n",
              parsed.err);
}

INSTANTIATE_TEST_SUITE_P(Corpus, BadRuleText, testing::ValuesIn(caseNames("bad")),
                         [](const auto& test) { return test.param; });

} // namespace
