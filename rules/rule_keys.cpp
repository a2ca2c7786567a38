#include "rules/rule_keys.h"

#include "rules/word_lookup.h"

namespace halvo::rules {

namespace {

constexpr WordLookup<recordKeyCount> keyLookup(recordKeyNames);

} // namespace

std::optional<RecordKey> findRecordKey(std::string_view name) {
    const std::size_t index = keyLookup.find(name);
    if (index == recordKeyCount) {
        return std::nullopt;
    }
    return static_cast<RecordKey>(index);
}

} // namespace halvo::rules
