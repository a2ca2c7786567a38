#include "rules/rule_parser.h"

#include "rules/record_arena.h"
#include "rules/rule_clauses.h"
#include "rules/rule_fault.h"
#include "rules/rule_firstpass.h"
#include "rules/rule_tokenizer.h"
#include "rules/text_position.h"

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

// A notice about an accepted rule, found while diagnosing.
struct RuleNotice {
    std::size_t ruleNumber;
    RuleFault fault;
};

// The one parser behind both the loading path, which only needs the rule
// number, and the rule checker, which wants to know why: with `notices` the
// stages describe their failures and what they ignored.
std::optional<json::array> parseRuleSet(std::string_view text, RuleSetFailure& failure,
                                        std::vector<RuleNotice>* notices) {
    // The records pile up on the stack and become the array at the end, as
    // a JSON parser builds a document.
    json::value_stack records;
    records.reset(makeRecordArena());
    RuleFault* const fault = notices != nullptr ? &failure.fault : nullptr;
    TokenList tokens;      // reused by every line
    RuleDictionary record; // likewise
    bool inRule = false;
    const auto readRule = [&](std::string_view line) {
        ++failure.ruleNumber;
        inRule = true;
        if (fault != nullptr) {
            *fault = RuleFault{};
        }
        if (!rule_parser_line(line, tokens, fault) ||
            !rule_parser_line2dictionary(tokens, record, fault)) {
            return false;
        }
        if (fault != nullptr && isNotice(fault->kind)) {
            notices->push_back({failure.ruleNumber, *fault});
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

RuleTextDiagnostic outOfMemory(std::size_t ruleNumber) {
    return RuleTextDiagnostic{ruleNumber, 0, 0, 0, "out of memory"};
}

// Places the notices and the error (which comes after them in the text) in
// the text, all in one walk.
void locate(std::string_view text, const std::vector<RuleNotice>& notices,
            const std::optional<RuleNotice>& error, RuleTextReport& report) {
    std::vector<LinePoint> points;
    points.reserve(notices.size() + 1);
    for (const RuleNotice& notice : notices) {
        points.push_back({notice.ruleNumber - 1, notice.fault.lineOffset});
    }
    if (error) {
        points.push_back({error->ruleNumber - 1, error->fault.lineOffset});
    }
    const std::vector<std::size_t> offsets = textOffsetsOf(text, points);
    const std::vector<TextPosition> positions = textPositionsOf(text, offsets);
    const auto diagnostic = [&](const RuleNotice& found, std::size_t index) {
        return RuleTextDiagnostic{found.ruleNumber, offsets[index], positions[index].line,
                                  positions[index].column, describeRuleFault(found.fault)};
    };
    for (std::size_t index = 0; index < notices.size(); ++index) {
        report.notices.push_back(diagnostic(notices[index], index));
    }
    if (error) {
        report.error = diagnostic(*error, notices.size());
    }
}

} // namespace

util::Expected<json::array> rule_parser_check(std::string_view text) {
    RuleSetFailure failure;
    std::optional<json::array> records = parseRuleSet(text, failure, nullptr);
    if (records) {
        return std::move(*records);
    }
    switch (failure.stage) {
    case FailedStage::FirstPass:
        return util::Failure{"Error parsing rule data."};
    case FailedStage::Rule:
        break;
    }
    return util::Failure{"Parsing error at rule #" + std::to_string(failure.ruleNumber)};
}

std::optional<json::array> rule_parser_run(std::string_view text) {
    util::Expected<json::array> records = rule_parser_check(text);
    if (records) {
        return std::move(records).value();
    }
    std::fputs((records.error() + "\n").c_str(), stderr);
    return std::nullopt;
}

RuleTextReport parseRuleTextDetailed(std::string_view text) {
    RuleTextReport report;
    try {
        RuleSetFailure failure;
        std::vector<RuleNotice> notices;
        report.records = parseRuleSet(text, failure, &notices);
        std::optional<RuleNotice> error;
        if (!report.records) {
            // Memory that ran out leaves no fault behind.
            if (failure.stage == FailedStage::FirstPass ||
                failure.fault.kind == RuleFaultKind::None) {
                report.error = outOfMemory(failure.ruleNumber);
                return report;
            }
            error = RuleNotice{failure.ruleNumber, failure.fault};
        }
        locate(text, notices, error, report);
    } catch (const std::bad_alloc&) {
        report.records.reset();
        report.notices.clear();
        report.error = outOfMemory(0);
    }
    return report;
}

} // namespace halvo::rules
