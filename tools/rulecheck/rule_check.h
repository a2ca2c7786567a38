// halvo-rulecheck: checks a rule file with the parser of `halvoctl rule
// load`, without a daemon.  A valid file is printed back in its canonical
// form; the first error is shown as FILE:LINE:COLUMN with the line and a
// caret under the word at fault.
#pragma once

#include <cstdio>
#include <string_view>

namespace halvo::rulecheck {

enum ExitStatus : int {
    valid = 0,      // the canonical rules are on `out`
    invalid = 1,    // the first error is on `err`
    unreadable = 2, // the file could not be read, or the command line is wrong
};

// Checks `text`, read from `name`: prints the canonical rules on `out` and
// returns `valid`, or prints the first error on `err` and returns `invalid`.
// Clauses that the parser ignores at the end of a rule are shown on `err`
// as warnings.
int checkRuleText(std::string_view name, std::string_view text, std::FILE* out, std::FILE* err);

// The whole program: `halvo-rulecheck FILE|-`.
int runRuleCheck(int argc, const char* const* argv, std::FILE* out, std::FILE* err);

} // namespace halvo::rulecheck
