#include "listings/device_record.h"

#include "util/json_fields.h"

#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

namespace halvo::listings {

namespace json = boost::json;

namespace {

// The values of the keys a row reads, found in one walk over the element's
// members. A device list may hold hundreds of thousands of elements, and a
// separate search per key (a linear scan of the small object each time)
// costs more than formatting the row. A parsed object holds each key once,
// so the walk finds exactly what the searches would; the JSON type rules
// are still the shared ones.
struct DeviceMembers {
    const json::value* id = nullptr;
    const json::value* vid = nullptr;
    const json::value* pid = nullptr;
    const json::value* rev = nullptr;
    const json::value* builtIn = nullptr;
    const json::value* port = nullptr;
    const json::value* serial = nullptr;
    const json::value* name = nullptr;
    const json::value* state = nullptr;
    const json::value* addr = nullptr;
};

const json::value** slotFor(DeviceMembers& members, std::string_view key) {
    switch (key.size()) {
    case 2:
        return key == "id" ? &members.id : nullptr;
    case 3:
        return key == "vid"   ? &members.vid
               : key == "pid" ? &members.pid
               : key == "rev" ? &members.rev
                              : nullptr;
    case 4:
        return key == "port"   ? &members.port
               : key == "name" ? &members.name
               : key == "addr" ? &members.addr
                               : nullptr;
    case 5:
        return key == "state" ? &members.state : nullptr;
    case 6:
        return key == "serial" ? &members.serial : nullptr;
    case 8:
        return key == "built-in" ? &members.builtIn : nullptr;
    default:
        return nullptr;
    }
}

DeviceMembers membersOf(const json::object& device) {
    DeviceMembers members;
    for (const json::key_value_pair& member : device) {
        if (const json::value** slot = slotFor(members, member.key())) {
            *slot = &member.value();
        }
    }
    return members;
}

bool isNumber(const json::value* value) {
    return value != nullptr && util::isNumber(*value);
}

bool isFlag(const json::value* value) {
    return value != nullptr && util::isFlag(*value);
}

bool isText(const json::value* value) {
    return value != nullptr && value->is_string();
}

std::string_view textOf(const json::value& value) {
    const json::string& text = value.get_string();
    return std::string_view(text.data(), text.size());
}

// The serial may be empty but must be there. A serial of another JSON type
// (a number, null, ...) has no text of its own to show, so such an element
// is refused like any other malformed one.
bool isComplete(const DeviceMembers& members) {
    return isNumber(members.id) && isNumber(members.vid) && isNumber(members.pid) &&
           isNumber(members.rev) && isFlag(members.builtIn) && isText(members.port) &&
           isText(members.serial) && isText(members.name) && isText(members.state) &&
           (members.addr == nullptr || isText(members.addr));
}

} // namespace

std::optional<DeviceRecord> readDeviceRecord(const json::value& element) {
    const json::object* device = element.if_object();
    if (device == nullptr) {
        return std::nullopt;
    }
    const DeviceMembers members = membersOf(*device);
    if (!isComplete(members)) {
        return std::nullopt;
    }
    std::optional<std::string_view> addr;
    if (members.addr != nullptr) {
        addr = textOf(*members.addr);
    }
    return DeviceRecord{
        util::toU32(*members.id),       util::toU32(*members.vid),
        util::toU32(*members.pid),      util::toU32(*members.rev),
        util::toFlag(*members.builtIn), textOf(*members.port),
        textOf(*members.serial),        textOf(*members.name),
        textOf(*members.state),         addr,
    };
}

// The width pass touches every element once more than the rows do, so it
// stops at the one member it needs.
std::size_t portWidth(const json::value& element) {
    const json::object* device = element.if_object();
    if (device == nullptr) {
        return 0;
    }
    for (const json::key_value_pair& member : *device) {
        if (member.key() == "port") {
            const json::string* port = member.value().if_string();
            return port != nullptr ? port->size() : 0;
        }
    }
    return 0;
}

} // namespace halvo::listings
