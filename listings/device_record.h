// One element of the daemon's device list, read for a table row.
#pragma once

#include <boost/json/value.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace halvo::listings {

// The fields of one device; the texts point into the reply, which must
// outlive the record.
struct DeviceRecord {
    std::uint32_t id;
    std::uint32_t vid;
    std::uint32_t pid;
    std::uint32_t rev;
    bool builtIn;
    std::string_view port;
    std::string_view serial;
    std::string_view name;
    std::string_view state;
    std::optional<std::string_view> addr;
};

// Reads an element of "devices". Nothing when it is not an object, or when
// "id", "vid", "pid", "rev" (numbers), "built-in" (boolean or number),
// "port", "serial", "name", "state" (strings) are missing or of another
// type, or when "addr" is there but not a string. Other keys are ignored.
std::optional<DeviceRecord> readDeviceRecord(const boost::json::value& element);

// Byte length of the element's "port" string; 0 when the element is not an
// object or has no string "port". Looks at nothing else, so it also measures
// elements that readDeviceRecord refuses.
std::size_t portWidth(const boost::json::value& element);

} // namespace halvo::listings
