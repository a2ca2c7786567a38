#include "util/utf8.h"

#include <cstddef>

namespace halvo::util {

namespace {

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Length of the sequence led by `lead` and the allowed range of its second
// byte (which is where overlongs, surrogates and out-of-range points show).
struct Lead {
    std::size_t length;
    unsigned char secondMin;
    unsigned char secondMax;
};

bool classify(unsigned char lead, Lead& out) {
    if (lead >= 0xC2 && lead <= 0xDF) {
        out = {2, 0x80, 0xBF};
    } else if (lead == 0xE0) {
        out = {3, 0xA0, 0xBF};
    } else if (lead == 0xED) {
        out = {3, 0x80, 0x9F};
    } else if (lead >= 0xE1 && lead <= 0xEF) {
        out = {3, 0x80, 0xBF};
    } else if (lead == 0xF0) {
        out = {4, 0x90, 0xBF};
    } else if (lead >= 0xF1 && lead <= 0xF3) {
        out = {4, 0x80, 0xBF};
    } else if (lead == 0xF4) {
        out = {4, 0x80, 0x8F};
    } else {
        return false;
    }
    return true;
}

} // namespace

bool isValidUtf8(std::string_view bytes) {
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t size = bytes.size();
    std::size_t i = 0;
    while (i < size) {
        unsigned char lead = data[i];
        if (lead < 0x80) {
            ++i;
            continue;
        }
        Lead shape{};
        if (!classify(lead, shape) || size - i < shape.length) {
            return false;
        }
        unsigned char second = data[i + 1];
        if (second < shape.secondMin || second > shape.secondMax) {
            return false;
        }
        for (std::size_t k = 2; k < shape.length; ++k) {
            if (!isContinuation(data[i + k])) {
                return false;
            }
        }
        i += shape.length;
    }
    return true;
}

} // namespace halvo::util
