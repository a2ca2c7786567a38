// Devices of the Linux USB bus, read from sysfs (normally
// /sys/bus/usb/devices; any folder of the same shape in tests).
//
// Every entry that has idVendor and idProduct is a device, except hubs
// (device class 09) and interfaces (names with ":").  The port is the entry's
// name ("1-2.3"), "built-in" comes from `removable` = "fixed", the name from
// `product`, else `manufacturer`, the state from `authorized`.
#pragma once

#include "daemon/core/device_backend.h"

#include <filesystem>

namespace halvo::daemon {

class SysfsBackend final : public DeviceBackend {
  public:
    explicit SysfsBackend(std::filesystem::path root);

    ScanResult scan() override;
    // Withdraws the device's authorisation and grants it again, which makes
    // the kernel drop its drivers and configure it afresh.
    std::optional<std::string> unplug(const Device& device) override;
    bool seesHotplug() const override { return true; }

  private:
    std::filesystem::path root_;
};

} // namespace halvo::daemon
