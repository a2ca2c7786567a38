// The keys of a rule record, shared by the parser that writes them and the
// printer that reads them back, so that the two cannot drift apart.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace halvo::rules {

enum class RecordKey : std::uint8_t {
    Action,
    Quick,
    Host,
    NotHost,
    Rdesk,
    Name,
    NameMatch,
    NotName,
    BuiltIn,
    Vid,
    Pid,
    Rev,
    NotHwid,
    Serial,
    NotSerial,
    Port,
    NotPort,
    Class,
    Subclass,
    Protocol,
    NotClass,
    OverrideName,
    OverrideSerial,
    Takeaway,
};

inline constexpr std::size_t recordKeyCount = static_cast<std::size_t>(RecordKey::Takeaway) + 1;

inline constexpr std::array<std::string_view, recordKeyCount> recordKeyNames = {
    "action",
    "quick",
    "host",
    "notHost",
    "rdesk",
    "name",
    "nameMatch",
    "notName",
    "built-in",
    "vid",
    "pid",
    "rev",
    "notHWID",
    "serial",
    "notSerial",
    "port",
    "notPort",
    "class",
    "subclass",
    "protocol",
    "notClass",
    "override-name",
    "override-serial",
    "takeaway",
};

constexpr std::string_view keyName(RecordKey key) {
    return recordKeyNames[static_cast<std::size_t>(key)];
}

// The key named `name`, if it is one of a rule record's.
std::optional<RecordKey> findRecordKey(std::string_view name);

} // namespace halvo::rules
