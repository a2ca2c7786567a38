// First pass over rule text: cuts it into logical lines and removes comments,
// line continuations and leading whitespace.
//
//   - A line feed or a NUL byte ends a line; empty lines are dropped.
//   - "#" outside double quotes starts a comment up to the end of the line.
//     Quotes are counted across line ends, and a backslash-escaped quote
//     counts too: this pass knows no escapes.
//   - Backslash + line feed joins two lines (both bytes vanish).
//   - The final byte of a text that does not end with a line feed is always
//     kept, even inside a comment: rule files written that way have been
//     loaded like this all along, so their rule numbers must not move.
//
// Most logical lines are a stretch of the text itself and are handed out as
// views of it; only joined lines are copied.
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>
#include <vector>

namespace halvo::rules {

// Calls `onLine` with each logical line of `text` (never empty), in order,
// until it returns false.  A line is valid only during its call.  Returns
// false when `onLine` stopped the pass.  Throws std::bad_alloc when memory
// runs out.
bool rule_parser_firstpass(std::string_view text,
                           const std::function<bool(std::string_view line)>& onLine);

// A byte of a logical line: the line's index among the logical lines of the
// text (from 0) and the byte's offset in the line.
struct LinePoint {
    std::size_t lineIndex;
    std::size_t lineOffset;
};

// The offset in `text` of each of `points`, which must be in text order (by
// line, then by offset): how a word found in a logical line is traced back
// to the file.  A point past the end of its line maps to text.size().
std::vector<std::size_t> textOffsetsOf(std::string_view text, const std::vector<LinePoint>& points);

} // namespace halvo::rules
