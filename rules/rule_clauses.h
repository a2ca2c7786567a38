// Builds one rule record from the words of one line.
//
// A rule is a sequence of clauses in any order, with exactly one action
// ("share" or "block").  Clause words that take a value consume the next
// word whatever it is, even "!" or another clause word.  "!" toggles a
// pending negation, which waits across a value-taking clause word and
// applies once its value is read.  A clause still waiting for its value at
// the end of the line is dropped silently, as is a pending "!".
//
// Keys are written in the order in which the clauses set them.  "hwid" and
// "class" may repeat, the later one overwriting the numbers it gives; every
// other clause may appear once.  "host" and "rdesk" exclude each other.
#pragma once

#include "rules/rule_dictionary.h"
#include "rules/rule_fault.h"
#include "rules/rule_tokenizer.h"

namespace halvo::rules {

// Reads the record of `tokens` into `record` (which points into them
// afterwards).  Returns false on a grammar error, described in `*fault` when
// `fault` is not null.  When `fault` is not null and the rule is accepted,
// `fault->kind` tells whether its end was ignored (a notice kind) or not
// (None).
bool rule_parser_line2dictionary(const TokenList& tokens, RuleDictionary& record,
                                 RuleFault* fault = nullptr);

} // namespace halvo::rules
