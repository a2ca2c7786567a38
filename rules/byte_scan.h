// Finding the next byte that a rule text scanner must look at, eight bytes at
// a time.
//
// Rule text is mostly plain words; the scanners only care about line ends,
// quotes, backslashes, "#" and whitespace.  Testing a whole 64-bit word for
// candidates and then checking only the candidates keeps the cost per plain
// byte well below one table look-up.
#pragma once

#include <cstddef>
#include <string_view>

namespace halvo::rules {

// The first offset in [from, to) of a line feed, a NUL, a "#" outside double
// quotes or a backslash followed by a line feed (which may lie at `to`);
// `to` if there is none.  The double quotes on the way flip `inQuote`.
std::size_t findLineBreak(const char* text, std::size_t from, std::size_t to, bool& inQuote);

// The first offset in [from, to) of a double quote or backslash, or of
// whitespace when `inQuote` is false; `to` if there is none.
std::size_t findWordStop(const char* text, std::size_t from, std::size_t to, bool inQuote);

// True when every byte of `bytes` is below 0x80: plain ASCII is valid UTF-8
// without a closer look.
bool isAscii(std::string_view bytes);

} // namespace halvo::rules
