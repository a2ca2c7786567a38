#include "rules/rule_parser.h"

#include "rules/rule_clauses.h"
#include "rules/rule_fault.h"
#include "rules/rule_firstpass.h"
#include "rules/rule_tokenizer.h"

#include <cstdio>
#include <new>

namespace halvo::rules {

namespace json = boost::json;

namespace {

enum class FailedStage {
    FirstPass, // memory ran out while cutting the text into lines
    Result,    // memory ran out for the array of records
    Rule,      // a rule did not tokenise or did not make a record
};

struct RuleSetFailure {
    FailedStage stage = FailedStage::Rule;
    std::size_t ruleNumber = 0;  // the rule being read when it failed
    std::size_t lineIndex = 0;   // its logical line
    RuleFault fault;             // filled in only when diagnosing
};

// The one parser behind both the loading path, which only needs the rule
// number, and the rule checker, which wants to know why: `diagnose` decides
// whether the stages describe their failures.
std::optional<json::array> parseRuleSet(std::string_view text, RuleSetFailure& failure, bool diagnose) {
    LogicalLines lines;
    try {
        lines = rule_parser_firstpass(text);
    } catch (const std::bad_alloc&) {
        failure.stage = FailedStage::FirstPass;
        return std::nullopt;
    }
    json::array records;
    try {
        records.reserve(lines.size());
    } catch (const std::bad_alloc&) {
        failure.stage = FailedStage::Result;
        return std::nullopt;
    }
    RuleFault* const fault = diagnose ? &failure.fault : nullptr;
    TokenList tokens;
    std::size_t index = 0;
    try {
        for (; index < lines.size(); ++index) {
            if (!rule_parser_line(lines[index], tokens, fault)) {
                break;
            }
            std::optional<json::object> record = rule_parser_line2dictionary(tokens, fault);
            if (!record) {
                break;
            }
            records.emplace_back(std::move(*record));
        }
    } catch (const std::bad_alloc&) {
        // A rule that cannot be held in memory fails like a bad rule.
    }
    if (index == lines.size()) {
        return records;
    }
    failure.stage = FailedStage::Rule;
    failure.ruleNumber = index + 1;
    failure.lineIndex = index;
    return std::nullopt;
}

} // namespace

std::optional<json::array> rule_parser_run(std::string_view text) {
    RuleSetFailure failure;
    std::optional<json::array> records = parseRuleSet(text, failure, false);
    if (records) {
        return records;
    }
    switch (failure.stage) {
    case FailedStage::FirstPass:
        std::fputs("Error parsing rule data.\n", stderr);
        break;
    case FailedStage::Result:
        std::fputs("Memory allocation error.\n", stderr);
        break;
    case FailedStage::Rule:
        std::fprintf(stderr, "Parsing error at rule #%lu\n",
                     static_cast<unsigned long>(failure.ruleNumber));
        break;
    }
    return std::nullopt;
}

} // namespace halvo::rules
