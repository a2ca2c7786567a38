#include "listings/output_buffer.h"

#include <charconv>

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
    if (room() < maxDigits) {
        flush();
    }
    char* start = block_.data() + used_;
    used_ += static_cast<std::size_t>(std::to_chars(start, start + maxDigits, number).ptr - start);
}

void OutputBuffer::hex4(std::uint32_t number) {
    if (room() < maxDigits) {
        flush();
    }
    char* start = block_.data() + used_;
    if (number > 0xffff) {
        used_ += static_cast<std::size_t>(std::to_chars(start, start + maxDigits, number, 16).ptr -
                                          start);
        return;
    }
    // USB ids are 16-bit: four digits with their leading zeros.
    static constexpr char hexDigit[] = "0123456789abcdef";
    start[0] = hexDigit[(number >> 12) & 0xfu];
    start[1] = hexDigit[(number >> 8) & 0xfu];
    start[2] = hexDigit[(number >> 4) & 0xfu];
    start[3] = hexDigit[number & 0xfu];
    used_ += 4;
}

} // namespace halvo::listings
