#include "rules/text_position.h"

#include <algorithm>

namespace halvo::rules {

std::vector<TextPosition> textPositionsOf(std::string_view text,
                                          const std::vector<std::size_t>& offsets) {
    std::vector<TextPosition> positions;
    positions.reserve(offsets.size());
    std::size_t line = 1;
    std::size_t lineStart = 0;
    std::size_t counted = 0; // line feeds before here are counted
    for (const std::size_t offset : offsets) {
        const std::size_t end = std::min(offset, text.size());
        for (; counted < end; ++counted) {
            if (text[counted] == '\n') {
                ++line;
                lineStart = counted + 1;
            }
        }
        positions.push_back({line, offset - lineStart + 1});
    }
    return positions;
}

std::string_view lineAt(std::string_view text, std::size_t offset) {
    const std::size_t start = offset == 0 ? 0 : text.rfind('\n', offset - 1) + 1;
    const std::size_t end = text.find('\n', offset);
    return text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
}

} // namespace halvo::rules
