// A write-behind block for table output.
//
// Listings can run to hundreds of thousands of rows; composing them in one
// block and handing the stream a few large writes keeps the per-row cost to
// plain byte copies instead of one locked stdio call per piece. Text is
// written as its bytes, never interpreted as a format.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace halvo::listings {

class OutputBuffer {
  public:
    explicit OutputBuffer(std::FILE* out) : out_(out) {}
    ~OutputBuffer() { flush(); }

    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;

    void text(std::string_view bytes) {
        if (bytes.size() > room()) {
            textAfterFlush(bytes);
            return;
        }
        std::memcpy(block_.data() + used_, bytes.data(), bytes.size());
        used_ += bytes.size();
    }

    void character(char c) {
        if (room() == 0) {
            flush();
        }
        block_[used_++] = c;
    }

    void repeat(char c, std::size_t count) {
        if (count > room()) {
            repeatAcrossBlocks(c, count);
            return;
        }
        std::memset(block_.data() + used_, c, count);
        used_ += count;
    }

    // Unsigned decimal, as "%u" prints it.
    void decimal(std::uint32_t number);
    // Lowercase hexadecimal, at least four digits, as "%04x" prints it.
    void hex4(std::uint32_t number);

    // Hands everything collected so far to the stream (which keeps its own
    // buffering: nothing is flushed to the file descriptor here).
    void flush();

  private:
    // Digits of the longest number the number writers append.
    static constexpr std::size_t maxDigits = 10;

    std::size_t room() const { return block_.size() - used_; }
    void textAfterFlush(std::string_view bytes);
    void repeatAcrossBlocks(char c, std::size_t count);

    std::FILE* out_;
    std::size_t used_ = 0;
    std::array<char, 16 * 1024> block_;
};

} // namespace halvo::listings
