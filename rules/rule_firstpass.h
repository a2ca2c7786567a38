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
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::rules {

// The logical lines of a text, each non-empty, stored back to back in one
// buffer so that a large rule set costs two allocations, not one per line.
class LogicalLines {
  public:
    std::size_t size() const { return ends_.size(); }
    bool empty() const { return ends_.empty(); }
    std::string_view operator[](std::size_t index) const;

  private:
    friend class LogicalLineWriter;
    std::string bytes_;
    std::vector<std::size_t> ends_;
};

// The logical lines of `text`; throws std::bad_alloc when memory runs out.
LogicalLines rule_parser_firstpass(std::string_view text);

// For each byte of logical line `lineIndex`, its offset in `text`: how an
// error found in a logical line is traced back to the file.  Empty when the
// text has fewer lines.
std::vector<std::size_t> sourceOffsetsOfLine(std::string_view text, std::size_t lineIndex);

} // namespace halvo::rules
