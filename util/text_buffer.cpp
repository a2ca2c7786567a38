#include "util/text_buffer.h"

#include <algorithm>
#include <charconv>

namespace halvo::util {

void TextBuffer::repeat(char c, std::size_t count) {
    while (count > 0) {
        if (room() == 0) {
            flush();
        }
        const std::size_t piece = std::min(count, room());
        std::memset(block_.data() + used_, c, piece);
        used_ += piece;
        count -= piece;
    }
}

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
    char* const at = block_.data() + used_;
    used_ += static_cast<std::size_t>(std::to_chars(at, at + reserve, number).ptr - at);
}

void TextBuffer::textAfterFlush(std::string_view bytes) {
    flush();
    if (bytes.size() > blockSize) {
        // Too big to collect: pass it straight through.
        std::fwrite(bytes.data(), 1, bytes.size(), out_);
        return;
    }
    std::memcpy(block_.data(), bytes.data(), bytes.size());
    used_ = bytes.size();
}

void TextBuffer::flush() {
    if (used_ != 0) {
        std::fwrite(block_.data(), 1, used_, out_);
        used_ = 0;
    }
}

} // namespace halvo::util
