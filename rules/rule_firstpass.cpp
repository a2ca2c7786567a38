#include "rules/rule_firstpass.h"

#include "rules/byte_scan.h"
#include "rules/rule_chars.h"

#include <cstdint>
#include <string>

namespace halvo::rules {

namespace {

// The one walk over the text.  The sink receives the kept bytes as ranges of
// the text (sink.keep(offset, length), one call per unbroken stretch) and the
// line ends (sink.endLine(), which may stop the walk by returning false).
template <class Sink> void walkLogicalLines(std::string_view text, Sink& sink) {
    if (text.empty()) {
        return;
    }
    const char* const in = text.data();
    const std::size_t last = text.size() - 1;
    bool inQuote = false;
    bool inComment = false;
    // Kept bytes not yet handed to the sink: [keptBegin, keptEnd) of the text.
    std::size_t keptBegin = 0;
    std::size_t keptEnd = 0;
    const auto handOver = [&] {
        if (keptEnd != keptBegin) {
            sink.keep(keptBegin, keptEnd - keptBegin);
            keptBegin = keptEnd;
        }
    };
    const auto keep = [&](std::size_t begin, std::size_t end) {
        if (keptEnd != begin) {
            handOver();
            keptBegin = begin;
        }
        keptEnd = end;
    };
    const auto endLine = [&] {
        handOver();
        return sink.endLine();
    };
    const auto lineEmpty = [&] { return keptEnd == keptBegin && sink.lineEmpty(); };

    std::size_t at = 0;
    while (at <= last) {
        const std::uint8_t cls = byteClass(in[at]);
        if ((cls & lineEndByte) != 0) {
            inComment = false;
            if (!endLine()) {
                return;
            }
            ++at;
        } else if (at == last) {
            keep(at, at + 1);
            endLine();
            return;
        } else if (inComment || ((cls & blankByte) != 0 && lineEmpty())) {
            ++at;
        } else if ((cls & hashByte) != 0 && !inQuote) {
            inComment = true;
            ++at;
        } else if ((cls & backslashByte) != 0 && in[at + 1] == '\n') {
            at += 2;
        } else {
            // This byte is kept, and so is the run after it up to the next
            // byte that needs a decision, or up to the byte before the last.
            inQuote = inQuote != ((cls & quoteByte) != 0);
            const std::size_t end = findLineBreak(in, at + 1, last, inQuote);
            keep(at, end);
            at = end;
        }
    }
}

// Hands each line on as a view of the text while it is one stretch of it,
// and as a copy once a continuation or a comment has cut a gap into it.
class LineViewSink {
  public:
    LineViewSink(std::string_view text, const std::function<bool(std::string_view)>& onLine)
        : text_(text), onLine_(onLine) {}

    bool lineEmpty() const { return begin_ == end_ && !copied_; }

    void keep(std::size_t offset, std::size_t length) {
        if (lineEmpty()) {
            begin_ = offset;
            end_ = offset + length;
        } else if (!copied_ && offset == end_) {
            end_ += length;
        } else {
            if (!copied_) {
                copy_.assign(text_.substr(begin_, end_ - begin_));
                copied_ = true;
            }
            copy_.append(text_.substr(offset, length));
        }
    }

    bool endLine() {
        if (lineEmpty()) {
            return true;
        }
        const std::string_view line = copied_ ? std::string_view(copy_) : text_.substr(begin_, end_ - begin_);
        const bool goOn = onLine_(line);
        begin_ = end_ = 0;
        copied_ = false;
        stopped_ = !goOn;
        return goOn;
    }

    bool stopped() const { return stopped_; }

  private:
    std::string_view text_;
    const std::function<bool(std::string_view)>& onLine_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::string copy_; // reused by every joined line
    bool copied_ = false;
    bool stopped_ = false;
};

class SourceOffsetRecorder {
  public:
    explicit SourceOffsetRecorder(std::size_t lineIndex) : wanted_(lineIndex) {}

    bool lineEmpty() const { return currentLength_ == 0; }
    void keep(std::size_t offset, std::size_t length) {
        currentLength_ += length;
        if (current_ == wanted_) {
            for (std::size_t i = 0; i < length; ++i) {
                offsets_.push_back(offset + i);
            }
        }
    }
    bool endLine() {
        if (currentLength_ != 0) {
            ++current_;
            currentLength_ = 0;
        }
        return current_ <= wanted_;
    }
    std::vector<std::size_t> take() { return std::move(offsets_); }

  private:
    std::size_t wanted_;
    std::size_t current_ = 0;
    std::size_t currentLength_ = 0;
    std::vector<std::size_t> offsets_;
};

} // namespace

bool rule_parser_firstpass(std::string_view text,
                           const std::function<bool(std::string_view line)>& onLine) {
    LineViewSink sink(text, onLine);
    walkLogicalLines(text, sink);
    return !sink.stopped();
}

std::vector<std::size_t> sourceOffsetsOfLine(std::string_view text, std::size_t lineIndex) {
    SourceOffsetRecorder recorder(lineIndex);
    walkLogicalLines(text, recorder);
    return recorder.take();
}

} // namespace halvo::rules
