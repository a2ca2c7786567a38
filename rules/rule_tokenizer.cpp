#include "rules/rule_tokenizer.h"

#include "rules/rule_chars.h"
#include "util/utf8.h"

#include <cstring>

namespace halvo::rules {

// One pass over one line.  A word is kept as a stretch of the line for as
// long as it is one; the scanning state lives in locals so that the byte loop
// stays in registers.
class LineTokenizer {
  public:
    LineTokenizer(std::string_view line, TokenList& tokens, RuleFault* fault)
        : line_(line), tokens_(tokens), fault_(fault) {
        tokens_.count_ = 0;
        room_ = tokens_.words_.size();
        // A joined word is never longer than the line, so the buffer does not
        // move while the line is read and the views into it stay valid.
        if (tokens_.joined_.size() < line.size()) {
            tokens_.joined_.resize(line.size());
        }
    }

    bool run() {
        const char* const in = line_.data();
        const std::size_t size = line_.size();
        constexpr std::uint8_t wordStops = quoteByte | backslashByte | blankByte;
        std::size_t wordStart = 0;     // where the word being collected begins in the line
        std::size_t quoteOpenedAt = 0; // line offset of the quote now open
        bool inQuote = false;
        bool escaped = false;
        bool separator = false;
        for (std::size_t at = 0; at < size; ++at) {
            const std::uint8_t cls = byteClass(in[at]);
            // Most words are bare (no quotes, no escapes) or one quoted
            // value, ended by whitespace or the end of the line.  Such a word
            // reads the same here, in one go, as it does byte by byte below.
            if (!escaped && !inQuote && !separator && wordEmpty()) {
                const bool quoted = (cls & quoteByte) != 0;
                const std::size_t begin = quoted ? at + 1 : at;
                std::uint8_t seen = quoted ? 0 : cls;
                // Each scan with its own constant stops, which keeps the loops
                // tight.
                const std::size_t end =
                    quoted ? skipBytes(in, begin, size, quoteByte | backslashByte, seen)
                           : skipBytes(in, at + 1, size, wordStops, seen);
                const bool closed = quoted && end < size && in[end] == '"';
                const std::size_t after = closed ? end + 1 : end;
                // Empty quotes are left to the slow way: the whitespace after
                // them is no separator.
                const bool whole = quoted ? closed && end > begin : (cls & wordStops) == 0;
                if (whole && (after == size || (byteClass(in[after]) & blankByte) != 0)) {
                    take(begin, end, seen);
                    if (!emitWord(wordStart)) {
                        return fail(RuleFaultKind::InvalidUtf8, wordStart);
                    }
                    at = after;
                    while (at + 1 < size && isRuleWhitespace(in[at + 1])) {
                        ++at;
                    }
                    wordStart = at + 1;
                    continue;
                }
            }
            bool wordBreak = false;
            if (escaped) {
                take(at, at + 1, cls);
                escaped = false;
            } else if ((cls & backslashByte) != 0) {
                escaped = true;
            } else if ((cls & quoteByte) != 0) {
                quoteOpenedAt = inQuote ? quoteOpenedAt : at;
                inQuote = !inQuote;
            } else if ((cls & blankByte) != 0 && !inQuote) {
                while (at + 1 < size && isRuleWhitespace(in[at + 1])) {
                    ++at;
                }
                separator = true;
                wordBreak = true;
            } else {
                // Take the run of plain bytes that begins here, unless a word
                // is due after every byte (the empty quotes in the header).
                std::uint8_t seen = cls;
                const std::uint8_t stops = inQuote ? quoteByte | backslashByte : wordStops;
                const std::size_t end =
                    separator ? at + 1 : skipBytes(in, at + 1, size, stops, seen);
                take(at, end, seen);
                at = end - 1;
            }
            const bool last = at + 1 == size;
            if ((separator || last) && !wordEmpty()) {
                // A quote opened on this line and still open at its end,
                // unless the very last byte is a quote itself.
                if (inQuote && last && in[at] != '"') {
                    return fail(RuleFaultKind::UnterminatedQuote, quoteOpenedAt);
                }
                if (!emitWord(wordStart)) {
                    return fail(RuleFaultKind::InvalidUtf8, wordStart);
                }
                separator = false;
                wordBreak = true;
            }
            if (wordBreak) {
                wordStart = at + 1;
            }
        }
        return true;
    }

  private:
    bool wordEmpty() const { return !joining_ && pieceBegin_ == pieceEnd_; }

    // Adds line bytes [begin, end), of byte classes `seen`, to the word.
    void take(std::size_t begin, std::size_t end, std::uint8_t seen) {
        wordSeen_ |= seen;
        if (joining_) {
            join(begin, end);
        } else if (pieceBegin_ == pieceEnd_) {
            pieceBegin_ = begin;
            pieceEnd_ = end;
        } else if (begin == pieceEnd_) {
            pieceEnd_ = end;
        } else {
            joining_ = true;
            joinBegin_ = joinEnd_;
            join(pieceBegin_, pieceEnd_);
            join(begin, end);
        }
    }

    void join(std::size_t begin, std::size_t end) {
        std::memcpy(tokens_.joined_.data() + joinEnd_, line_.data() + begin, end - begin);
        joinEnd_ += end - begin;
    }

    bool emitWord(std::size_t wordStart) {
        std::string_view word =
            joining_ ? std::string_view(tokens_.joined_).substr(joinBegin_, joinEnd_ - joinBegin_)
                     : line_.substr(pieceBegin_, pieceEnd_ - pieceBegin_);
        const bool ascii = (wordSeen_ & highByte) == 0;
        joining_ = false;
        pieceBegin_ = pieceEnd_ = 0;
        wordSeen_ = 0;
        std::size_t lineOffset = wordStart;
        if (word.size() >= 2 && word[0] == '!') {
            add(word.substr(0, 1), wordStart);
            word.remove_prefix(1);
            lineOffset += line_[wordStart] == '!' ? 1u : 0u;
        }
        if (!ascii && !util::isValidUtf8(word)) {
            return false;
        }
        add(word, lineOffset);
        return true;
    }

    void add(std::string_view word, std::size_t lineOffset) {
        if (tokens_.count_ == room_) {
            tokens_.words_.resize(room_ * 2 + 16);
            room_ = tokens_.words_.size();
        }
        tokens_.words_[tokens_.count_++] = {word, lineOffset};
    }

    bool fail(RuleFaultKind kind, std::size_t lineOffset) {
        if (fault_ != nullptr) {
            *fault_ = RuleFault{kind, lineOffset, {}, {}};
        }
        return false;
    }

    std::string_view line_;
    TokenList& tokens_;
    RuleFault* fault_;
    // The word so far: a stretch [pieceBegin_, pieceEnd_) of the line, or,
    // once it is not one any more, [joinBegin_, joinEnd_) of the list's buffer.
    std::size_t pieceBegin_ = 0;
    std::size_t pieceEnd_ = 0;
    std::size_t joinBegin_ = 0;
    std::size_t joinEnd_ = 0;
    bool joining_ = false;
    std::uint8_t wordSeen_ = 0; // the byte classes of the word so far
    std::size_t room_;          // the size of the list's word array
};

bool rule_parser_line(std::string_view line, TokenList& tokens, RuleFault* fault) {
    return LineTokenizer(line, tokens, fault).run();
}

} // namespace halvo::rules
