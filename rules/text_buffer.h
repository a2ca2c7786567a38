// An output buffer for listings that are written in many small pieces: the
// pieces collect in memory and reach the stream in large blocks, so that a
// long listing costs a handful of stdio calls rather than several per line.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace halvo::rules {

class TextBuffer {
  public:
    explicit TextBuffer(std::FILE* out);
    ~TextBuffer() { flush(); }
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    void text(std::string_view piece) { bytes_.append(piece); }
    void character(char c) { bytes_.push_back(c); }
    // Lowercase hexadecimal with at least `minDigits` digits, like "%0*x".
    void hex(std::uint32_t number, int minDigits);
    // Like "%lu".
    void decimal(unsigned long number);
    // Ends a line; hands the buffer to the stream once it is large.
    void endLine();
    void flush();

  private:
    std::FILE* out_;
    std::string bytes_;
};

} // namespace halvo::rules
