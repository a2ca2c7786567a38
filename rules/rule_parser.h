// Rule text -> rule records.
//
// The text is bytes and a length: it may hold NUL bytes (a NUL ends a line)
// and need not end with a line feed.  A rule set is loaded whole or not at
// all: on the first failing rule the parser prints one message to standard
// error and returns nothing.
#pragma once

#include "util/expected.h"

#include <boost/json/array.hpp>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::rules {

// The rule records of `text`, in text order (possibly none); nothing after
// printing "Parsing error at rule #N\n" (or a memory message) to stderr.
//
// The records share one arena, records.storage(), which lives as long as any
// of them: moving the array keeps it, while storing the array into a JSON
// container made on another storage copies every record.
std::optional<boost::json::array> rule_parser_run(std::string_view text);

// The same parse without printing: the records, or as its failure the message
// that rule_parser_run prints, without its line feed ("Parsing error at rule
// #N"). For a caller that reports on behalf of someone else (the daemon).
util::Expected<boost::json::array> rule_parser_check(std::string_view text);

// One finding of the rule checker: where in the text, and why.
struct RuleTextDiagnostic {
    std::size_t ruleNumber = 0; // as in "Parsing error at rule #N"; 0: no rule
    std::size_t offset = 0;     // byte offset of the word concerned in the text
    std::size_t line = 0;       // from 1, counted by line feeds; 0: nowhere
    std::size_t column = 0;     // from 1, in bytes
    std::string message;        // e.g. `unknown clause word "Share"`
};

struct RuleTextReport {
    std::optional<boost::json::array> records; // the rule set, when the text is valid
    std::optional<RuleTextDiagnostic> error;   // the first error otherwise
    // What accepted rules leave unread at their end (a clause without its
    // value, a "!" before nothing): no error, but likely a slip.
    std::vector<RuleTextDiagnostic> notices;
};

// The parser of rule_parser_run, telling where and why instead of printing:
// it accepts and rejects exactly the same texts, with the same rule numbers.
RuleTextReport parseRuleTextDetailed(std::string_view text);

} // namespace halvo::rules
