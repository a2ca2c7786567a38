// Strict UTF-8 validation: no overlong forms, no surrogates, nothing above
// U+10FFFF, no truncated sequences.
#pragma once

#include <string_view>

namespace halvo::util {

bool isValidUtf8(std::string_view bytes);

} // namespace halvo::util
