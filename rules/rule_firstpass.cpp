#include "rules/rule_firstpass.h"

#include "rules/rule_chars.h"

namespace halvo::rules {

std::string_view LogicalLines::operator[](std::size_t index) const {
    const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
    return std::string_view(bytes_).substr(begin, ends_[index] - begin);
}

namespace {

// The one walk over the text; the sink decides what to keep of the lines.
template <class Sink> void walkLogicalLines(std::string_view text, Sink& sink) {
    bool inQuote = false;
    bool inComment = false;
    const std::size_t size = text.size();
    for (std::size_t at = 0; at < size; ++at) {
        const char c = text[at];
        if (c == '\0' || c == '\n') {
            sink.endLine();
            inComment = false;
            continue;
        }
        if (at + 1 == size) {
            sink.append(c, at);
            sink.endLine();
            break;
        }
        if (sink.lineEmpty() && isRuleWhitespace(c)) {
            continue;
        }
        if (c == '#' && !inQuote) {
            inComment = true;
            continue;
        }
        if (inComment) {
            continue;
        }
        if (c == '\\' && text[at + 1] == '\n') {
            ++at;
            continue;
        }
        if (c == '"') {
            inQuote = !inQuote;
        }
        sink.append(c, at);
    }
}

} // namespace

// Fills LogicalLines in place: the output never outgrows the input, so the
// buffer is sized once and written through a plain index.
class LogicalLineWriter {
  public:
    LogicalLineWriter(LogicalLines& lines, std::size_t textSize) : lines_(lines) {
        lines_.bytes_.resize(textSize);
    }

    bool lineEmpty() const { return used_ == lineBegin_; }
    void append(char c, std::size_t /*sourceOffset*/) { lines_.bytes_[used_++] = c; }
    void endLine() {
        if (!lineEmpty()) {
            lines_.ends_.push_back(used_);
            lineBegin_ = used_;
        }
    }
    void finish() { lines_.bytes_.resize(used_); }

  private:
    LogicalLines& lines_;
    std::size_t used_ = 0;
    std::size_t lineBegin_ = 0;
};

LogicalLines rule_parser_firstpass(std::string_view text) {
    LogicalLines lines;
    LogicalLineWriter writer(lines, text.size());
    walkLogicalLines(text, writer);
    writer.finish();
    return lines;
}

namespace {

class SourceOffsetRecorder {
  public:
    explicit SourceOffsetRecorder(std::size_t lineIndex) : wanted_(lineIndex) {}

    bool lineEmpty() const { return currentLength_ == 0; }
    void append(char /*c*/, std::size_t sourceOffset) {
        ++currentLength_;
        if (current_ == wanted_) {
            offsets_.push_back(sourceOffset);
        }
    }
    void endLine() {
        if (currentLength_ != 0) {
            ++current_;
            currentLength_ = 0;
        }
    }
    std::vector<std::size_t> take() { return std::move(offsets_); }

  private:
    std::size_t wanted_;
    std::size_t current_ = 0;
    std::size_t currentLength_ = 0;
    std::vector<std::size_t> offsets_;
};

} // namespace

std::vector<std::size_t> sourceOffsetsOfLine(std::string_view text, std::size_t lineIndex) {
    SourceOffsetRecorder recorder(lineIndex);
    walkLogicalLines(text, recorder);
    return recorder.take();
}

} // namespace halvo::rules
