#include "rules/rule_tokenizer.h"

#include "rules/rule_chars.h"
#include "util/utf8.h"

namespace halvo::rules {

// One pass over one line.  Word bytes are written straight into the list's
// buffer, which never needs more room than the line itself.
class LineTokenizer {
  public:
    LineTokenizer(std::string_view line, TokenList& tokens, RuleFault* fault)
        : line_(line), tokens_(tokens), fault_(fault) {
        tokens_.spans_.clear();
        if (tokens_.bytes_.size() < line.size()) {
            tokens_.bytes_.resize(line.size());
        }
        out_ = tokens_.bytes_.data();
    }

    bool run() {
        const std::size_t size = line_.size();
        for (std::size_t at = 0; at < size; ++at) {
            char c = line_[at];
            bool wordBreak = false;
            if (escaped_) {
                out_[used_++] = c;
                escaped_ = false;
            } else if (c == '\\') {
                escaped_ = true;
            } else if (c == '"') {
                if (!inQuote_) {
                    quoteOpenedAt_ = at;
                }
                inQuote_ = !inQuote_;
            } else if (!inQuote_ && isRuleWhitespace(c)) {
                while (at + 1 < size && isRuleWhitespace(line_[at + 1])) {
                    ++at;
                }
                separator_ = true;
                wordBreak = true;
            } else {
                out_[used_++] = c;
            }
            const bool last = at + 1 == size;
            if ((separator_ || last) && used_ != wordBegin_) {
                // A quote opened on this line and still open at its end,
                // unless the very last byte is the quote itself.
                if (inQuote_ && last && c != '"') {
                    return fail(RuleFaultKind::UnterminatedQuote, quoteOpenedAt_);
                }
                if (!emitWord()) {
                    return fail(RuleFaultKind::InvalidUtf8, wordStart_);
                }
                wordBreak = true;
            }
            if (wordBreak) {
                wordStart_ = at + 1;
            }
        }
        return true;
    }

  private:
    bool emitWord() {
        std::size_t begin = wordBegin_;
        std::size_t restOffset = wordStart_;
        if (out_[begin] == '!' && used_ - begin >= 2) {
            tokens_.spans_.push_back({begin, 1, wordStart_});
            ++begin;
            restOffset += line_[wordStart_] == '!' ? 1 : 0;
        }
        if (!util::isValidUtf8(std::string_view(out_ + begin, used_ - begin))) {
            return false;
        }
        tokens_.spans_.push_back({begin, used_ - begin, restOffset});
        wordBegin_ = used_;
        separator_ = false;
        return true;
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
    char* out_ = nullptr;
    std::size_t used_ = 0;          // bytes written to the list's buffer
    std::size_t wordBegin_ = 0;     // where the word being collected begins there
    std::size_t wordStart_ = 0;     // where that word begins in the line
    std::size_t quoteOpenedAt_ = 0; // line offset of the quote now open
    bool inQuote_ = false;
    bool escaped_ = false;
    bool separator_ = false;
};

bool rule_parser_line(std::string_view line, TokenList& tokens, RuleFault* fault) {
    return LineTokenizer(line, tokens, fault).run();
}

} // namespace halvo::rules
