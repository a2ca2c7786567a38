#include "rules/text_buffer.h"

#include <charconv>

namespace halvo::rules {

namespace {

constexpr std::size_t blockSize = 64 * 1024;

} // namespace

TextBuffer::TextBuffer(std::FILE* out) : out_(out) {
    bytes_.reserve(blockSize + 1024);
}

void TextBuffer::hex(std::uint32_t number, int minDigits) {
    char digits[8];
    int count = 0;
    do {
        digits[count++] = "0123456789abcdef"[number & 0xF];
        number >>= 4;
    } while (number != 0);
    while (count < minDigits && count < 8) {
        digits[count++] = '0';
    }
    while (count > 0) {
        bytes_.push_back(digits[--count]);
    }
}

void TextBuffer::decimal(unsigned long number) {
    char digits[24];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, number);
    bytes_.append(digits, result.ptr);
}

void TextBuffer::endLine() {
    bytes_.push_back('\n');
    if (bytes_.size() >= blockSize) {
        flush();
    }
}

void TextBuffer::flush() {
    if (!bytes_.empty()) {
        std::fwrite(bytes_.data(), 1, bytes_.size(), out_);
        bytes_.clear();
    }
}

} // namespace halvo::rules
