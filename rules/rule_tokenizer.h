// Splits one logical line of rule text into words.
//
//   - Words are separated by runs of whitespace outside double quotes.
//   - Double quotes group text and vanish; they may open and close inside a
//     word.  A backslash makes the next byte literal and vanishes itself (a
//     backslash at the very end of the line is dropped).
//   - A word that begins with "!" and is longer than that yields "!" and the
//     rest, even when the "!" was quoted or escaped.
//   - Every word must be valid UTF-8.
//   - Empty quotes yield no word, and the whitespace after them does not
//     count as a separator: in `is "" share` the words after "is" are "s" and
//     "hare".  Existing rule files depend on this, so it stays.
#pragma once

#include "rules/rule_fault.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::rules {

// The words of one line.  Most words are views of the line itself; the few
// that quotes or escapes have cut into pieces are put together in a buffer
// of the list's own.  A list is meant to be reused from line to line, so that
// a rule set is tokenised without an allocation per word.  Its words are
// valid while the line they came from is alive and the list is unchanged.
class TokenList {
  public:
    std::size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    std::string_view operator[](std::size_t index) const { return words_[index].text; }
    // Where the word begins in its logical line (for error reports).
    std::size_t lineOffset(std::size_t index) const { return words_[index].lineOffset; }

  private:
    friend class LineTokenizer;
    struct Word {
        std::string_view text;
        std::size_t lineOffset;
    };
    std::string joined_;      // room for the words that are not views of the line
    std::vector<Word> words_; // the first count_ are this line's
    std::size_t count_ = 0;
};

// Replaces `tokens` with the words of `line`.  Returns false on a quote left
// open at the end of the line or on a word that is not valid UTF-8, and then
// describes the failure in `*fault` when `fault` is not null.  Throws
// std::bad_alloc when memory runs out.
bool rule_parser_line(std::string_view line, TokenList& tokens, RuleFault* fault = nullptr);

} // namespace halvo::rules
