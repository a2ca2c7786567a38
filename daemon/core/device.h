// A USB device as the daemon knows it, and its record in the device list.
#pragma once

#include "usbip/wire.h"

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace halvo::daemon {

// How a device presents itself on the bus, as a remote host that imports it
// sees it: what the USB/IP device record carries beyond the identity below.
using BusDescription = halvo::usbip::BusDescription;

inline constexpr std::uint8_t kHubClass = 0x09;

struct Device {
    // Assigned by the device table; 0 until then.
    std::uint32_t id = 0;
    std::uint16_t vid = 0;
    std::uint16_t pid = 0;
    std::uint16_t rev = 0;
    // The device class triple; for devices that declare their class per
    // interface, the first interface's.
    std::uint8_t deviceClass = 0;
    std::uint8_t subclass = 0;
    std::uint8_t protocol = 0;
    bool builtIn = false;
    // The USB port, e.g. "1-2.3".
    std::string port;
    std::string name;
    // "" when the device has none.
    std::string serial;
    std::string state;
    // The peer that the state refers to, e.g. the host using the device.
    std::optional<std::string> addr;
    BusDescription bus;
};

// Same physical device in the same place: what lets a rescan keep its id.
bool isSameDevice(const Device& left, const Device& right);

// The device-list record: "id", "vid", "pid", "rev", "port", "built-in",
// "name", "serial", "state", "addr" (when set), "class", "subclass",
// "protocol".
boost::json::object toListRecord(const Device& device);

// The payload of a device event announcing `state` for the device.
boost::json::object toEventPayload(const Device& device, std::string_view state);

} // namespace halvo::daemon
