#include "rules/record_fields.h"

#include "rules/rule_keys.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace halvo::rules {

namespace {

struct KeyName {
    std::string_view name;
    RecordKey key;
};

// Sorted by length so that a key is compared only with names of its length.
constexpr std::array<KeyName, static_cast<std::size_t>(RecordKey::Count)> keyNames = {{
    {keys::vid, RecordKey::Vid},
    {keys::pid, RecordKey::Pid},
    {keys::rev, RecordKey::Rev},
    {keys::host, RecordKey::Host},
    {keys::name, RecordKey::Name},
    {keys::port, RecordKey::Port},
    {keys::quick, RecordKey::Quick},
    {keys::rdesk, RecordKey::Rdesk},
    {keys::deviceClass, RecordKey::Class},
    {keys::action, RecordKey::Action},
    {keys::serial, RecordKey::Serial},
    {keys::notHost, RecordKey::NotHost},
    {keys::notName, RecordKey::NotName},
    {keys::notHwid, RecordKey::NotHwid},
    {keys::notPort, RecordKey::NotPort},
    {keys::builtIn, RecordKey::BuiltIn},
    {keys::subclass, RecordKey::Subclass},
    {keys::protocol, RecordKey::Protocol},
    {keys::notClass, RecordKey::NotClass},
    {keys::takeaway, RecordKey::Takeaway},
    {keys::nameMatch, RecordKey::NameMatch},
    {keys::notSerial, RecordKey::NotSerial},
    {keys::overrideName, RecordKey::OverrideName},
    {keys::overrideSerial, RecordKey::OverrideSerial},
}};

static_assert(std::is_sorted(keyNames.begin(), keyNames.end(),
                             [](const KeyName& a, const KeyName& b) {
                                 return a.name.size() < b.name.size();
                             }),
              "keyNames must be sorted by length");

constexpr std::size_t longestName = keyNames.back().name.size();

// firstOfLength[n]..firstOfLength[n + 1] are the names of length n.
constexpr std::array<std::size_t, longestName + 2> firstOfLength = [] {
    std::array<std::size_t, longestName + 2> first{};
    for (std::size_t length = 0; length <= longestName + 1; ++length) {
        std::size_t index = 0;
        while (index < keyNames.size() && keyNames[index].name.size() < length) {
            ++index;
        }
        first[length] = index;
    }
    return first;
}();

std::optional<RecordKey> classify(std::string_view name) {
    if (name.size() > longestName) {
        return std::nullopt;
    }
    for (std::size_t i = firstOfLength[name.size()]; i < firstOfLength[name.size() + 1]; ++i) {
        if (keyNames[i].name == name) {
            return keyNames[i].key;
        }
    }
    return std::nullopt;
}

} // namespace

RecordFields::RecordFields(const boost::json::object& record) {
    for (const boost::json::key_value_pair& entry : record) {
        if (const std::optional<RecordKey> key = classify(entry.key())) {
            values_[static_cast<std::size_t>(*key)] = &entry.value();
        }
    }
}

} // namespace halvo::rules
