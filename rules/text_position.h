// Where a byte of a text stands for people: its line and column.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace halvo::rules {

struct TextPosition {
    std::size_t line;   // from 1; lines end at line feeds
    std::size_t column; // from 1, in bytes
};

// The position of each of `offsets` (ascending) in `text`, in one walk.
std::vector<TextPosition> textPositionsOf(std::string_view text,
                                          const std::vector<std::size_t>& offsets);

// The line that holds byte `offset` of `text`, without its line feed.
std::string_view lineAt(std::string_view text, std::size_t offset);

} // namespace halvo::rules
