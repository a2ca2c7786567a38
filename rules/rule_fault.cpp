#include "rules/rule_fault.h"

namespace halvo::rules {

namespace {

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

} // namespace

std::string describeRuleFault(const RuleFault& fault) {
    const std::string clause = quoted(fault.clause);
    const std::string subject = quoted(fault.subject);
    switch (fault.kind) {
    case RuleFaultKind::None:
        return "no error";
    case RuleFaultKind::NoWords:
        return "rule has no words: empty quotes, a lone backslash or blank yield none";
    case RuleFaultKind::UnterminatedQuote:
        return "unterminated quote: the double quote opened here is not closed on this line";
    case RuleFaultKind::InvalidUtf8:
        return "invalid UTF-8 in this word";
    case RuleFaultKind::UnknownWord:
        return "unknown clause word " + subject;
    case RuleFaultKind::NegatedAction:
        return "negated action: " + clause + " cannot be negated with \"!\"";
    case RuleFaultKind::SecondAction:
        return "second action " + clause + ": a rule has exactly one of \"share\" or \"block\"";
    case RuleFaultKind::NoAction:
        if (!fault.subject.empty()) {
            return "no action: " + subject + " was read as the value of " + clause;
        }
        if (!fault.clause.empty()) {
            return "no action: a rule needs \"share\" or \"block\" (and " + clause +
                   " at the end is missing its value)";
        }
        return "no action: a rule needs \"share\" or \"block\"";
    case RuleFaultKind::NegatedQuick:
    case RuleFaultKind::NegatedOverride:
        return clause + " cannot be negated with \"!\"";
    case RuleFaultKind::DuplicateClause:
        return "duplicate clause " + clause + ": it may appear only once in a rule";
    case RuleFaultKind::HostAfterRdesk:
        return "\"host\" after \"rdesk\": a rule names either hosts or remote desktop";
    case RuleFaultKind::RdeskAfterHost:
        return "\"rdesk\" after \"host\": a rule names either hosts or remote desktop";
    case RuleFaultKind::BadNameMode:
        return "\"name\" must be followed by \"is\" or \"contains\", not " + subject;
    case RuleFaultKind::BadIdComponent:
        return "bad " + fault.clause + " component " + subject + ": not a hexadecimal number";
    case RuleFaultKind::TooManyIdComponents:
        return fault.clause + " value " + subject + " has more than three components";
    case RuleFaultKind::DroppedClause:
        return "missing value: " + clause + " at the end of the rule has no value and is ignored";
    case RuleFaultKind::DroppedNegation:
        return "\"!\" at the end of the rule negates nothing and is ignored";
    }
    return "malformed rule";
}

} // namespace halvo::rules
