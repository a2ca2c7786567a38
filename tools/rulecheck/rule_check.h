// halvo-rulecheck: checks rule files with the parser of `halvoctl rule
// load`, without a daemon.  Each valid file is printed back in its canonical
// form; the first error of each file is shown as FILE:LINE:COLUMN with the
// line and a caret under the word at fault.
#pragma once

#include <cstdio>
#include <string_view>

namespace halvo::rulecheck {

// Ordered by gravity: a run over several files exits with the gravest.
enum ExitStatus : int {
    valid = 0,      // the canonical rules are on `out`
    invalid = 1,    // the first error is on `err`
    unreadable = 2, // a file could not be read, or the command line is wrong
};

enum class Warnings { allowed, fail };

// Checks `text`, read from `name`: prints the canonical rules on `out` and
// returns `valid`, or prints the first error on `err` and returns `invalid`.
// Clauses that the parser ignores at the end of a rule, and host entries
// that are no address (no network peer matches them), are shown on `err`
// as warnings; with Warnings::fail a text that has any is `invalid` and
// nothing goes to `out`.
int checkRuleText(std::string_view name, std::string_view text, Warnings warnings, std::FILE* out,
                  std::FILE* err);

// The whole program: `halvo-rulecheck [--strict] FILE|-...`, `--help`,
// `--version`; `stdinStream` is what `-` reads.
int runRuleCheck(int argc, const char* const* argv, std::FILE* stdinStream, std::FILE* out,
                 std::FILE* err);

} // namespace halvo::rulecheck
