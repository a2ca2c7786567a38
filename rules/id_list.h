// The value of a "hwid" or "class" clause: one to three hexadecimal numbers
// joined by ":" (vid[:pid[:rev]], class[:subclass[:protocol]]).
#pragma once

#include "rules/rule_fault.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace halvo::rules {

struct IdListFault {
    RuleFaultKind kind = RuleFaultKind::BadIdComponent; // or TooManyIdComponents
    std::string_view component; // the bad component, or the whole value if too many
};

// Stores the numbers of `value` in `numbers` and returns their count (1 to
// 3), or returns 0 when `value` has more than three components or a component
// that is not a number, describing why in `*fault` when it is not null.
//
// Each component reads as strtoull(component, &end, 16) would read it: blanks
// before it, a sign ("-1" wraps to all ones) and a 0x prefix are accepted,
// too large a number saturates, but every byte must be used.  An empty
// component reads as 0.  The caller keeps the bits it needs.
std::size_t rule_parser_triple2values(std::string_view value, std::array<std::uint64_t, 3>& numbers,
                                      IdListFault* fault = nullptr);

} // namespace halvo::rules
