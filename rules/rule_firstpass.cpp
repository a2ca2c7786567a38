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
        const std::string_view line =
            copied_ ? std::string_view(copy_) : text_.substr(begin_, end_ - begin_);
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

// Maps points of logical lines to text offsets while the walk hands out the
// lines' stretches.
class TextOffsetRecorder {
  public:
    TextOffsetRecorder(const std::vector<LinePoint>& points, std::size_t textSize)
        : points_(points), offsets_(points.size(), textSize) {}

    bool lineEmpty() const { return lineLength_ == 0; }
    void keep(std::size_t offset, std::size_t length) {
        for (; next_ < points_.size() && points_[next_].lineIndex == lineIndex_ &&
               points_[next_].lineOffset < lineLength_ + length;
             ++next_) {
            offsets_[next_] = offset + (points_[next_].lineOffset - lineLength_);
        }
        lineLength_ += length;
    }
    bool endLine() {
        if (lineLength_ != 0) {
            while (next_ < points_.size() && points_[next_].lineIndex == lineIndex_) {
                ++next_; // past the end of its line
            }
            ++lineIndex_;
            lineLength_ = 0;
        }
        return next_ < points_.size();
    }
    std::vector<std::size_t> take() { return std::move(offsets_); }

  private:
    const std::vector<LinePoint>& points_;
    std::vector<std::size_t> offsets_;
    std::size_t next_ = 0; // the first point not yet placed
    std::size_t lineIndex_ = 0;
    std::size_t lineLength_ = 0;
};

} // namespace

bool rule_parser_firstpass(std::string_view text,
                           const std::function<bool(std::string_view line)>& onLine) {
    LineViewSink sink(text, onLine);
    walkLogicalLines(text, sink);
    return !sink.stopped();
}

std::vector<std::size_t> textOffsetsOf(std::string_view text,
                                       const std::vector<LinePoint>& points) {
    TextOffsetRecorder recorder(points, text.size());
    if (!points.empty()) {
        walkLogicalLines(text, recorder);
    }
    return recorder.take();
}

} // namespace halvo::rules
