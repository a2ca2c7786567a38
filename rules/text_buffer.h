// An output buffer for listings that are written in many small pieces: the
// pieces collect in one block of memory and reach the stream in large
// writes, so that a long listing costs a handful of stdio calls rather than
// several per line.  Text is copied as bytes, never read as a format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

namespace halvo::rules {

class TextBuffer {
  public:
    explicit TextBuffer(std::FILE* out);
    ~TextBuffer() { flush(); }
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    void text(std::string_view piece) {
        if (piece.size() > room()) {
            makeRoom(piece.size());
            if (piece.size() > blockSize) {
                write(piece);
                return;
            }
        }
        std::memcpy(block_.get() + used_, piece.data(), piece.size());
        used_ += piece.size();
    }
    // A string literal: its length is known here, so the copy is a few moves.
    template <std::size_t Size> void literal(const char (&piece)[Size]) {
        static_assert(Size - 1 <= reserve, "literal longer than the reserve");
        ensureReserve();
        std::memcpy(block_.get() + used_, piece, Size - 1);
        used_ += Size - 1;
    }
    void character(char c) {
        ensureReserve();
        block_[used_++] = c;
    }
    // Lowercase hexadecimal with at least `minDigits` (at most 8) digits,
    // like "%0*x".
    void hex(std::uint32_t number, int minDigits);
    // Like "%lu".
    void decimal(unsigned long number);
    void flush();

  private:
    static constexpr std::size_t blockSize = 64 * 1024;
    // Room always kept free for a number, a character or a literal.
    static constexpr std::size_t reserve = 32;

    std::size_t room() const { return blockSize - used_; }
    void ensureReserve() {
        if (room() < reserve) {
            flush();
        }
    }
    void makeRoom(std::size_t bytes);
    void write(std::string_view bytes);

    std::FILE* out_;
    std::unique_ptr<char[]> block_;
    std::size_t used_ = 0;
};

} // namespace halvo::rules
