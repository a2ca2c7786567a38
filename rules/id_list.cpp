#include "rules/id_list.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <string>

namespace halvo::rules {

namespace {

// The value of each hexadecimal digit; 0xFF for every other byte.
constexpr std::array<std::uint8_t, 256> hexDigits = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(0xFF);
    for (std::size_t digit = 0; digit < 10; ++digit) {
        values['0' + digit] = static_cast<std::uint8_t>(digit);
    }
    for (std::size_t digit = 0; digit < 6; ++digit) {
        values['a' + digit] = values['A' + digit] = static_cast<std::uint8_t>(10 + digit);
    }
    return values;
}();

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
        const std::uint8_t digit = hexDigits[static_cast<unsigned char>(c)];
        if (digit == 0xFF || ++digits > 16) {
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
