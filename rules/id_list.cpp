#include "rules/id_list.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>

namespace halvo::rules {

namespace {

int hexDigitValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// strtoull wants a terminated string; components are short, so they are
// copied to the stack unless they are absurdly long.
std::optional<std::uint64_t> readHexComponent(std::string_view component) {
    constexpr std::size_t stackSize = 64;
    char stackCopy[stackSize];
    std::string heapCopy;
    const char* text = stackCopy;
    if (component.size() < stackSize) {
        component.copy(stackCopy, component.size());
        stackCopy[component.size()] = '\0';
    } else {
        heapCopy.assign(component);
        text = heapCopy.c_str();
    }
    char* end = nullptr;
    const unsigned long long number = std::strtoull(text, &end, 16);
    if (end != text + component.size()) {
        return std::nullopt;
    }
    return number;
}

std::size_t failWith(IdListFault* fault, RuleFaultKind kind, std::string_view component) {
    if (fault != nullptr) {
        *fault = IdListFault{kind, component};
    }
    return 0;
}

// The usual value, one to three runs of at most 16 hex digits joined by
// ":", read in one pass; anything else (blanks, signs, prefixes, long runs,
// errors) goes the general way.
std::size_t readPlainIds(std::string_view value, std::array<std::uint64_t, 3>& numbers) {
    std::size_t count = 0;
    std::size_t digits = 0;
    std::uint64_t number = 0;
    for (const char c : value) {
        if (c == ':') {
            if (count == numbers.size() - 1) {
                return 0;
            }
            numbers[count++] = number;
            number = 0;
            digits = 0;
            continue;
        }
        const int digit = hexDigitValue(c);
        if (digit < 0 || ++digits > 16) {
            return 0;
        }
        number = number << 4 | static_cast<std::uint64_t>(digit);
    }
    numbers[count++] = number;
    return count;
}

} // namespace

std::size_t rule_parser_triple2values(std::string_view value, std::array<std::uint64_t, 3>& numbers,
                                      IdListFault* fault) {
    if (const std::size_t count = readPlainIds(value, numbers)) {
        return count;
    }
    const auto colons = static_cast<std::size_t>(std::count(value.begin(), value.end(), ':'));
    if (colons >= numbers.size()) {
        return failWith(fault, RuleFaultKind::TooManyIdComponents, value);
    }
    std::size_t begin = 0;
    for (std::size_t index = 0; index <= colons; ++index) {
        const std::size_t colon = value.find(':', begin);
        const std::string_view component = value.substr(begin, colon - begin);
        const std::optional<std::uint64_t> number = readHexComponent(component);
        if (!number) {
            return failWith(fault, RuleFaultKind::BadIdComponent, component);
        }
        numbers[index] = *number;
        begin = colon + 1;
    }
    return colons + 1;
}

} // namespace halvo::rules
