#include "attach/vhci.h"

#include <sstream>

namespace halvo::attach {

namespace {

// The kernel's usb_device_speed codes.
constexpr std::uint32_t kSpeedSuper = 5;
constexpr std::uint32_t kSpeedSuperPlus = 6;
// A port the kernel holds no device on (VDEV_ST_NULL).
constexpr unsigned kPortFree = 4;

bool isSuperSpeed(std::uint32_t speed) {
    return speed == kSpeedSuper || speed == kSpeedSuperPlus;
}

std::optional<VhciPort> parseLine(const std::string& line) {
    std::istringstream in(line);
    std::string hub;
    unsigned state = 0;
    unsigned long sockfd = 0;
    VhciPort port;
    in >> hub >> std::dec >> port.number >> state >> port.speed >> std::hex >> port.devid >>
        std::dec >> sockfd >> port.localBusId;
    if (!in || (hub != "hs" && hub != "ss")) {
        return std::nullopt;
    }
    port.superSpeed = hub == "ss";
    port.used = state != kPortFree;
    return port;
}

} // namespace

std::vector<VhciPort> parseVhciStatus(std::string_view text) {
    std::vector<VhciPort> ports;
    std::istringstream lines{std::string(text)};
    std::string line;
    while (std::getline(lines, line)) {
        if (auto port = parseLine(line)) {
            ports.push_back(*port);
        }
    }
    return ports;
}

util::Expected<VhciPort> choosePort(const std::vector<VhciPort>& ports, std::uint32_t speed) {
    if (speed == 0 || speed > kSpeedSuperPlus) {
        return util::Failure{"the server gives the device speed code " + std::to_string(speed) +
                             ", which vhci-hcd cannot attach"};
    }
    const bool superSpeed = isSuperSpeed(speed);
    const VhciPort* best = nullptr;
    for (const VhciPort& port : ports) {
        if (!port.used && port.superSpeed == superSpeed &&
            (best == nullptr || port.number < best->number)) {
            best = &port;
        }
    }
    if (best == nullptr) {
        return util::Failure{std::string("no free ") + (superSpeed ? "SuperSpeed" : "high-speed") +
                             " port on vhci-hcd (detach a device, or load vhci-hcd with more "
                             "controllers: modprobe vhci-hcd num_controllers=N)"};
    }
    return *best;
}

std::string attachLine(const VhciPort& port, int fd, const usbip::DeviceRecord& device) {
    const std::uint32_t speed = device.speed == kSpeedSuperPlus ? kSpeedSuper : device.speed;
    return std::to_string(port.number) + " " + std::to_string(fd) + " " +
           std::to_string(deviceId(device)) + " " + std::to_string(speed);
}

std::uint32_t deviceId(const usbip::DeviceRecord& device) {
    return device.busnum << 16 | (device.devnum & 0xffff);
}

std::string speedName(std::uint32_t speed) {
    static const char* const names[] = {"unknown",  "low",   "full",      "high",
                                        "wireless", "super", "super-plus"};
    return speed <= kSpeedSuperPlus ? names[speed] : "code " + std::to_string(speed);
}

} // namespace halvo::attach
