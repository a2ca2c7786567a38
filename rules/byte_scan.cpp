#include "rules/byte_scan.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace halvo::rules {

namespace {

constexpr std::uint64_t ones = 0x0101010101010101ULL;
constexpr std::uint64_t highs = 0x8080808080808080ULL;

// High bit set in every byte of `word` that is below `limit` (limit <= 128).
// A byte just above a marked one may be marked too (the subtraction borrows),
// but no byte below the limit is ever missed.
constexpr std::uint64_t bytesBelow(std::uint64_t word, std::uint8_t limit) {
    return (word - ones * limit) & ~word & highs;
}

// High bit set in every byte of `word` equal to `c`, with the same caveat.
constexpr std::uint64_t bytesEqual(std::uint64_t word, char c) {
    return bytesBelow(word ^ (ones * static_cast<std::uint8_t>(c)), 1);
}

// Walks [from, to) eight bytes at a time: `candidates` marks at least every
// byte that may stop the scan, and `stops(offset)` decides for each marked
// byte, in order.
template <class Candidates, class Stops>
std::size_t scan(const char* text, std::size_t from, std::size_t to, Candidates candidates,
                 Stops stops) {
    std::size_t at = from;
    if constexpr (std::endian::native == std::endian::little) {
        for (; at + 8 <= to; at += 8) {
            std::uint64_t word;
            std::memcpy(&word, text + at, sizeof word);
            for (std::uint64_t marks = candidates(word); marks != 0; marks &= marks - 1) {
                const std::size_t index =
                    at + static_cast<std::size_t>(std::countr_zero(marks)) / 8;
                if (stops(index)) {
                    return index;
                }
            }
        }
    }
    while (at < to && !stops(at)) {
        ++at;
    }
    return at;
}

} // namespace

std::size_t findLineBreak(const char* text, std::size_t from, std::size_t to, bool& inQuote) {
    return scan(
        text, from, to,
        [](std::uint64_t word) {
            // Line feed and NUL are both below 0x0b.
            return bytesBelow(word, 0x0b) | bytesEqual(word, '"') | bytesEqual(word, '\\') |
                   bytesEqual(word, '#');
        },
        [text, &inQuote](std::size_t at) {
            switch (text[at]) {
            case '"':
                inQuote = !inQuote;
                return false;
            case '\n':
            case '\0':
                return true;
            case '#':
                return !inQuote;
            case '\\':
                return text[at + 1] == '\n';
            default:
                return false;
            }
        });
}

} // namespace halvo::rules
