#include "listings/output_buffer.h"

namespace halvo::listings {

void OutputBuffer::flush() {
    if (used_ != 0) {
        std::fwrite(block_.data(), 1, used_, out_);
        used_ = 0;
    }
}

void OutputBuffer::textAfterFlush(std::string_view bytes) {
    flush();
    if (bytes.size() > block_.size()) {
        // Too big to collect: pass it straight through.
        std::fwrite(bytes.data(), 1, bytes.size(), out_);
        return;
    }
    std::memcpy(block_.data(), bytes.data(), bytes.size());
    used_ = bytes.size();
}

void OutputBuffer::repeatAcrossBlocks(char c, std::size_t count) {
    while (count > 0) {
        if (room() == 0) {
            flush();
        }
        std::size_t piece = count < room() ? count : room();
        std::memset(block_.data() + used_, c, piece);
        used_ += piece;
        count -= piece;
    }
}

void OutputBuffer::decimal(std::uint32_t number) {
    char digits[numberRoom];
    char* end = digits + sizeof digits;
    char* first = end;
    do {
        *--first = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    text(std::string_view(first, static_cast<std::size_t>(end - first)));
}

void OutputBuffer::hex4(std::uint32_t number) {
    static constexpr char hexDigits[] = "0123456789abcdef";
    char digits[numberRoom];
    char* end = digits + sizeof digits;
    char* first = end;
    do {
        *--first = hexDigits[number & 0xfu];
        number >>= 4;
    } while (number != 0 || end - first < 4);
    text(std::string_view(first, static_cast<std::size_t>(end - first)));
}

} // namespace halvo::listings
