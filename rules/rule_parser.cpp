#include "rules/rule_parser.h"

#include "rules/record_arena.h"
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
    Rule,      // a rule did not tokenise or did not make a record
};

struct RuleSetFailure {
    FailedStage stage = FailedStage::Rule;
    std::size_t ruleNumber = 0; // the rule being read when it failed
    RuleFault fault;            // filled in only when diagnosing
};

// The one parser behind both the loading path, which only needs the rule
// number, and the rule checker, which wants to know why: `diagnose` decides
// whether the stages describe their failures.
std::optional<json::array> parseRuleSet(std::string_view text, RuleSetFailure& failure, bool diagnose) {
    // The records pile up on the stack and become the array at the end, as
    // a JSON parser builds a document.
    json::value_stack records;
    records.reset(makeRecordArena());
    RuleFault* const fault = diagnose ? &failure.fault : nullptr;
    TokenList tokens;      // reused by every line
    RuleDictionary record; // likewise
    bool inRule = false;
    const auto readRule = [&](std::string_view line) {
        ++failure.ruleNumber;
        inRule = true;
        if (!rule_parser_line(line, tokens, fault) || !rule_parser_line2dictionary(tokens, record, fault)) {
            return false;
        }
        record.pushTo(records);
        inRule = false;
        return true;
    };
    try {
        rule_parser_firstpass(text, readRule);
    } catch (const std::bad_alloc&) {
        // A rule that cannot be held in memory fails like a bad rule.
        if (!inRule) {
            failure.stage = FailedStage::FirstPass;
            return std::nullopt;
        }
    }
    if (inRule) {
        failure.stage = FailedStage::Rule;
        return std::nullopt;
    }
    records.push_array(failure.ruleNumber); // every line read was a rule
    return std::move(records.release().get_array());
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
    case FailedStage::Rule:
        std::fprintf(stderr, "Parsing error at rule #%lu\n",
                     static_cast<unsigned long>(failure.ruleNumber));
        break;
    }
    return std::nullopt;
}

} // namespace halvo::rules
