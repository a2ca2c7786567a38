// Yes/no questions put to the user at the terminal.
#pragma once

#include <cstdio>

namespace halvo::rulefiles {

// Prints `prompt` as it stands on stdout and reads stdin until the answer is
// 'y' or 'n' (lowercase), which it returns.  Newlines are passed over without
// a new prompt; any other character prints the prompt again.  End of input
// counts as a wrong answer, so at end of input the prompt repeats without
// end.  Characters after the answer stay unread.
int areYouSure(const char* prompt);

// The same, talking through `in` and `out`.
int areYouSure(const char* prompt, std::FILE* in, std::FILE* out);

} // namespace halvo::rulefiles
