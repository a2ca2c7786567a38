#include "daemon/platform/linux/usbip_host.h"

#include "daemon/platform/linux/sysfs_attribute.h"

#include <chrono>
#include <system_error>
#include <thread>

namespace halvo::daemon {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kDriverName = "usbip-host";
constexpr std::string_view kStatusInUse = "2";
constexpr auto kSettleStep = std::chrono::milliseconds(10);
constexpr int kSettleSteps = 300;

// The name of the driver bound to the device in `folder`, if any.
std::optional<std::string> boundDriver(const fs::path& folder) {
    std::error_code error;
    fs::path target = fs::read_symlink(folder / "driver", error);
    if (error) {
        return std::nullopt;
    }
    return target.filename().string();
}

} // namespace

UsbipHost::UsbipHost(const fs::path& devicesRoot, Writer writer)
    : devices_(devicesRoot.lexically_normal()), write_(std::move(writer)) {
    if (devices_.filename().empty()) {
        devices_ = devices_.parent_path();
    }
    bus_ = devices_.parent_path();
    driver_ = bus_ / "drivers" / kDriverName;
    if (!write_) {
        write_ = writeAttribute;
    }
}

util::Expected<void> UsbipHost::handOver(const Device& device, int socketFd) {
    const fs::path folder = devices_ / device.port;
    if (auto matched = write_(driver_ / "match_busid", "add " + device.port); !matched) {
        return matched;
    }
    util::Expected<void> step;
    // usbip-host may hold the device already: it takes a device plugged in
    // on a port whose slot outlived the device that was shared there.
    auto current = boundDriver(folder);
    if (current != kDriverName) {
        if (current) {
            step = write_(folder / "driver" / "unbind", device.port);
        }
        if (step) {
            step = write_(driver_ / "bind", device.port);
        }
    }
    if (step) {
        step = write_(folder / "usbip_sockfd", std::to_string(socketFd) + "\n");
    }
    if (!step) {
        static_cast<void>(giveBack(device.port));
    }
    return step;
}

bool UsbipHost::inUse(const Device& device) {
    return readAttribute(devices_ / device.port, "usbip_status") == kStatusInUse;
}

util::Expected<void> UsbipHost::end(const Device& device) {
    util::Expected<void> stopped;
    if (inUse(device)) {
        stopped = write_(devices_ / device.port / "usbip_sockfd", "-1");
        // The kernel closes the connection and resets the device on its
        // own worker; an unbind before that worker is done frees the device
        // under it (an oops in usbip_core's event_handler). It is done when
        // the status leaves "in use", normally within milliseconds.
        for (int wait = 0; stopped && wait < kSettleSteps && inUse(device); ++wait) {
            std::this_thread::sleep_for(kSettleStep);
        }
    }
    auto givenBack = giveBack(device.port);
    return stopped ? givenBack : stopped;
}

util::Expected<void> UsbipHost::giveBack(const std::string& port) {
    std::error_code error;
    const bool present = fs::exists(devices_ / port, error);
    auto unbound = write_(driver_ / "unbind", port);
    auto unmatched = write_(driver_ / "match_busid", "del " + port);
    if (!present) {
        return {};
    }
    auto rebound = write_(driver_ / "rebind", port);
    if (!rebound) {
        rebound = write_(bus_ / "drivers_probe", port);
    }
    if (!unbound) {
        return unbound;
    }
    return unmatched ? rebound : unmatched;
}

ShareHandOff::Recovery UsbipHost::recoverLeftovers() {
    Recovery recovery;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(devices_, error)) {
        const std::string port = entry.path().filename().string();
        if (port.find(':') != std::string::npos || boundDriver(entry.path()) != kDriverName) {
            continue;
        }
        if (auto givenBack = giveBack(port); !givenBack) {
            recovery.problems.push_back(givenBack.error());
        } else {
            recovery.ports.push_back(port);
        }
    }
    return recovery;
}

} // namespace halvo::daemon
