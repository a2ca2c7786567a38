// Byte classes of the rule text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace halvo::rules {

// Space, tab, line feed, vertical tab, form feed and carriage return; a byte
// of 0x80 or above is never whitespace, whatever the locale says.
constexpr bool isRuleWhitespace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Bits for the bytes that the scanners stop at; the scanners skip over runs
// of other bytes with one table look-up per byte.
enum ByteClass : std::uint8_t {
    blankByte = 1,     // whitespace as above
    quoteByte = 2,     // "
    backslashByte = 4, // backslash
    lineEndByte = 8,   // line feed or NUL
    hashByte = 16,     // #
    highByte = 32,     // 0x80 and above: part of a multi-byte UTF-8 sequence
};

inline constexpr std::array<std::uint8_t, 256> byteClasses = [] {
    std::array<std::uint8_t, 256> classes{};
    for (int c = 0; c < 256; ++c) {
        int bits = 0;
        bits |= isRuleWhitespace(static_cast<char>(c)) ? blankByte : 0;
        bits |= c == '"' ? quoteByte : 0;
        bits |= c == '\\' ? backslashByte : 0;
        bits |= c == '\n' || c == '\0' ? lineEndByte : 0;
        bits |= c == '#' ? hashByte : 0;
        bits |= c >= 0x80 ? highByte : 0;
        classes[static_cast<std::size_t>(c)] = static_cast<std::uint8_t>(bits);
    }
    return classes;
}();

constexpr std::uint8_t byteClass(char c) {
    return byteClasses[static_cast<unsigned char>(c)];
}

// The first offset in [from, to) of a byte whose class has any of the `stops`
// bits, or `to`; the classes of the bytes passed over are ORed into `seen`.
inline std::size_t skipBytes(const char* text, std::size_t from, std::size_t to, std::uint8_t stops,
                             std::uint8_t& seen) {
    std::size_t at = from;
    for (; at < to; ++at) {
        const std::uint8_t bits = byteClass(text[at]);
        if ((bits & stops) != 0) {
            break;
        }
        seen |= bits;
    }
    return at;
}

} // namespace halvo::rules
