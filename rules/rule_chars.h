// Byte classes of the rule text.
#pragma once

namespace halvo::rules {

// Space, tab, line feed, vertical tab, form feed and carriage return; a byte
// of 0x80 or above is never whitespace, whatever the locale says.
constexpr bool isRuleWhitespace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

} // namespace halvo::rules
