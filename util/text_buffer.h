// A write-behind block for output written in many small pieces.
//
// Listings can run to hundreds of thousands of lines; composing them in one
// block and handing the stream a few large writes keeps the per-piece cost
// to plain byte copies instead of one locked stdio call per piece. Text is
// copied as bytes, never read as a format.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace halvo::util {

// The part of `text` that "%s" prints: up to its first NUL byte. Strings from
// the daemon's JSON may hold "\u0000"; what the utility prints of them has
// always stopped there.
inline std::string_view asCString(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

// Writes `text` to `out` as fprintf's "%s" would, without reading it as a
// format.
inline void writeCString(std::FILE* out, std::string_view text) {
    const std::string_view printed = asCString(text);
    std::fwrite(printed.data(), 1, printed.size(), out);
}

class TextBuffer {
  public:
    explicit TextBuffer(std::FILE* out) : out_(out) {}
    ~TextBuffer() { flush(); }
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    // Every byte of `bytes`, NULs included.
    void text(std::string_view bytes) {
        if (bytes.size() > room()) {
            textAfterFlush(bytes);
            return;
        }
        std::memcpy(block_.data() + used_, bytes.data(), bytes.size());
        used_ += bytes.size();
    }
    // Text as "%s" prints it.
    void cString(std::string_view bytes) { text(asCString(bytes)); }
    // A string literal: its length is known here, so the copy is a few moves.
    template <std::size_t Size> void literal(const char (&piece)[Size]) {
        static_assert(Size - 1 <= reserve, "literal longer than the reserve");
        ensureReserve();
        std::memcpy(block_.data() + used_, piece, Size - 1);
        used_ += Size - 1;
    }
    void character(char c) {
        ensureReserve();
        block_[used_++] = c;
    }
    void repeat(char c, std::size_t count);
    // Lowercase hexadecimal with at least `minDigits` (at most 8) digits,
    // like "%0*x".
    void hex(std::uint32_t number, int minDigits);
    // Like "%lu".
    void decimal(unsigned long number);

    // Hands everything collected so far to the stream (which keeps its own
    // buffering: nothing is flushed to the file descriptor here).
    void flush();

  private:
    static constexpr std::size_t blockSize = 16 * 1024;
    // Room always kept free for a number, a character or a literal.
    static constexpr std::size_t reserve = 32;

    std::size_t room() const { return blockSize - used_; }
    void ensureReserve() {
        if (room() < reserve) {
            flush();
        }
    }
    void textAfterFlush(std::string_view bytes);

    std::FILE* out_;
    std::size_t used_ = 0;
    std::array<char, blockSize> block_;
};

} // namespace halvo::util
