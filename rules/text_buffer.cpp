#include "rules/text_buffer.h"

#include <charconv>

namespace halvo::rules {

TextBuffer::TextBuffer(std::FILE* out) : out_(out), block_(new char[blockSize]) {}

void TextBuffer::hex(std::uint32_t number, int minDigits) {
    ensureReserve();
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
        block_[used_++] = digits[--count];
    }
}

void TextBuffer::decimal(unsigned long number) {
    ensureReserve();
    char* const at = block_.get() + used_;
    used_ += static_cast<std::size_t>(std::to_chars(at, at + reserve, number).ptr - at);
}

void TextBuffer::makeRoom(std::size_t bytes) {
    if (bytes > room()) {
        flush();
    }
}

void TextBuffer::write(std::string_view bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), out_);
}

void TextBuffer::flush() {
    write(std::string_view(block_.get(), used_));
    used_ = 0;
}

} // namespace halvo::rules
