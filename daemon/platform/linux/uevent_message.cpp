#include "daemon/platform/linux/uevent_message.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>

namespace halvo::daemon {

namespace {

// The longest bus id the USB/IP device record holds.
constexpr std::size_t kMaxBusidLength = 31;

constexpr std::array<std::string_view, 6> kBusActions = {"add",  "remove", "change",
                                                         "move", "bind",   "unbind"};

using Fields = std::map<std::string_view, std::string_view>;

// The fields after the header, or why they are not KEY=VALUE fields with
// distinct keys.
util::Expected<Fields> splitFields(std::string_view rest) {
    Fields fields;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\0');
        const std::string_view field = rest.substr(0, end);
        rest.remove_prefix(end + 1);
        const std::size_t equals = field.find('=');
        if (equals == 0 || equals == std::string_view::npos) {
            return util::Failure{"a field is not KEY=VALUE"};
        }
        if (!fields.emplace(field.substr(0, equals), field.substr(equals + 1)).second) {
            return util::Failure{"field " + std::string(field.substr(0, equals)) + " repeated"};
        }
    }
    return fields;
}

std::string_view valueOf(const Fields& fields, std::string_view key) {
    auto found = fields.find(key);
    return found == fields.end() ? std::string_view() : found->second;
}

// "1-2.3" from ".../usb1/1-2/1-2.3" and from its interface ".../1-2.3:1.0".
std::optional<std::string> busidOf(std::string_view devpath) {
    std::string_view busid = devpath.substr(devpath.rfind('/') + 1);
    busid = busid.substr(0, busid.find(':'));
    const bool wellFormed =
        !busid.empty() && busid.size() <= kMaxBusidLength &&
        std::all_of(busid.begin(), busid.end(), [](char c) {
            return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || c == '-' || c == '.';
        });
    if (!wellFormed) {
        return std::nullopt;
    }
    return std::string(busid);
}

} // namespace

util::Expected<BusChange> parseUevent(std::string_view message, std::uint32_t senderPort) {
    if (senderPort != 0) {
        return util::Failure{"not from the kernel"};
    }
    if (message.size() > kMaxUeventSize) {
        return util::Failure{"longer than " + std::to_string(kMaxUeventSize) + " bytes"};
    }
    if (message.empty() || message.back() != '\0') {
        return util::Failure{"truncated"};
    }
    const std::string_view header = message.substr(0, message.find('\0'));
    const std::size_t at = header.find('@');
    if (at == 0 || at == std::string_view::npos || header[at + 1] != '/') {
        return util::Failure{"no ACTION@DEVPATH header"};
    }
    auto fields = splitFields(message.substr(header.size() + 1));
    if (!fields) {
        return util::Failure{fields.error()};
    }
    const Fields& values = *fields;
    const std::string_view action = valueOf(values, "ACTION");
    const std::string_view devpath = valueOf(values, "DEVPATH");
    if (action != header.substr(0, at) || devpath != header.substr(at + 1)) {
        return util::Failure{"ACTION or DEVPATH missing or unlike the header"};
    }
    if (valueOf(values, "SUBSYSTEM") != "usb") {
        return util::Failure{"not a usb report"};
    }
    const std::string_view type = valueOf(values, "DEVTYPE");
    if (type != "usb_device" && type != "usb_interface") {
        return util::Failure{"not a usb device or interface"};
    }
    if (std::find(kBusActions.begin(), kBusActions.end(), action) == kBusActions.end()) {
        return util::Failure{"action " + std::string(action) + " does not change the bus"};
    }
    std::optional<std::string> busid = busidOf(devpath);
    if (!busid) {
        return util::Failure{"no bus id in DEVPATH"};
    }
    return BusChange{std::move(*busid), std::string(action)};
}

} // namespace halvo::daemon
