#include "bench/device_reply.h"

#include <array>
#include <cstdio>
#include <string_view>

namespace halvo::bench {

namespace {

constexpr std::string_view kOpening = "{\"devices\":[";
constexpr std::string_view kClosing = "]}";

constexpr std::array<std::string_view, 6> kNames = {
    "Linux Foundation 2.0 root hub",
    "USB Receiver",
    "Mass Storage Device",
    "FT232R USB UART",
    "Keyboard",
    "Integrated Camera",
};
constexpr std::array<std::string_view, 3> kStates = {"available", "shared", "used"};
constexpr std::array<std::string_view, 4> kSerials = {"", "A9C3F00112", "0000:00:14.0",
                                                      "3F1B2C9D8E7A6B5C"};

// One device as the daemon writes it: compact JSON, keys in its order.
std::string deviceJson(std::size_t index) {
    const std::string_view name = kNames[index % kNames.size()];
    const std::string_view state = kStates[index % kStates.size()];
    const std::string_view serial = kSerials[index % kSerials.size()];
    char port[24];
    // Ports of 3 to 11 bytes, so the widths straddle a tab stop.
    std::snprintf(port, sizeof port, index % 3 == 0 ? "%zu-%zu" : "%zu-%zu.%zu.%zu", index % 4 + 1,
                  index % 11 + 1, index % 7 + 1, index % 5 + 1);
    char addr[40] = "";
    // Shared and used devices name the host that holds them.
    if (state != "available") {
        std::snprintf(addr, sizeof addr, ",\"addr\":\"192.168.%zu.%zu\"", index % 256,
                      index / 256 % 256);
    }
    char text[320];
    int length = std::snprintf(
        text, sizeof text,
        "{\"id\":%zu,\"vid\":%zu,\"pid\":%zu,\"rev\":%zu,\"port\":\"%s\",\"built-in\":%s,"
        "\"name\":\"%.*s\",\"state\":\"%.*s\"%s,\"serial\":\"%.*s\"}",
        index + 1, 0x1d6b + index % 97, index % 0x10000, 0x0100 + index % 0x500, port,
        index % 9 == 0 ? "true" : "false", static_cast<int>(name.size()), name.data(),
        static_cast<int>(state.size()), state.data(), addr, static_cast<int>(serial.size()),
        serial.data());
    return std::string(text, static_cast<std::size_t>(length));
}

} // namespace

DeviceListPayload deviceListPayload(std::size_t count) {
    DeviceListPayload payload;
    payload.json = kOpening;
    for (std::size_t index = 0; index < count; ++index) {
        if (index != 0) {
            payload.json += ',';
        }
        payload.json += deviceJson(index);
    }
    payload.json += kClosing;
    payload.devices = count;
    return payload;
}

DeviceListPayload deviceListPayloadUpTo(std::size_t maxBytes) {
    DeviceListPayload payload;
    payload.json.reserve(maxBytes);
    payload.json = kOpening;
    for (std::size_t index = 0;; ++index) {
        std::string device = deviceJson(index);
        const std::size_t separator = index != 0 ? 1 : 0;
        if (payload.json.size() + separator + device.size() + kClosing.size() > maxBytes) {
            break;
        }
        if (separator != 0) {
            payload.json += ',';
        }
        payload.json += device;
        ++payload.devices;
    }
    payload.json += kClosing;
    return payload;
}

} // namespace halvo::bench
