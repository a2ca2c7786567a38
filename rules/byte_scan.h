// Finding the next byte that the first pass over rule text must look at,
// eight bytes at a time.
//
// Rule text is mostly plain words; the first pass only cares about line
// ends, quotes, backslashes and "#".  Testing a whole 64-bit word for
// candidates and then checking only the candidates keeps the cost per plain
// byte well below one table look-up.
#pragma once

#include <cstddef>

namespace halvo::rules {

// The first offset in [from, to) of a line feed, a NUL, a "#" outside double
// quotes or a backslash followed by a line feed (which may lie at `to`);
// `to` if there is none.  The double quotes on the way flip `inQuote`.
std::size_t findLineBreak(const char* text, std::size_t from, std::size_t to, bool& inQuote);

} // namespace halvo::rules
