// Devices of the Linux USB bus, read from sysfs (normally
// /sys/bus/usb/devices; any folder of the same shape in tests).
//
// Every entry that has idVendor and idProduct is a device, except hubs
// (device class 09), interfaces (names with ":") and devices that this
// machine imports over USB/IP (on a vhci_hcd controller): offering those
// again would loop them through this machine.  The port is the entry's
// name ("1-2.3"), "built-in" comes from `removable` = "fixed", the name from
// `product`, else `manufacturer`, the state from `authorized`.
#pragma once

#include "daemon/core/device_backend.h"

#include <chrono>
#include <filesystem>
#include <memory>

namespace halvo::daemon {

class SysfsBackend final : public DeviceBackend {
  public:
    explicit SysfsBackend(std::filesystem::path root,
                          std::chrono::milliseconds scanBound = std::chrono::seconds(3));

    // Reads the folder on a worker thread and waits for it at most
    // `scanBound`: a read of a device's attribute can block in the kernel for
    // good (a device whose lock a stuck driver holds), and the caller's
    // event loop must not block with it. A scan that overran fails with
    // that reason; until it ends, later scans wait for it instead of
    // starting another, so at most one thread is ever stuck.
    ScanResult scan() override;
    // Withdraws the device's authorisation and grants it again, which makes
    // the kernel drop its drivers and configure it afresh.
    util::Expected<void> unplug(const Device& device) override;
    bool seesHotplug() const override { return true; }

  private:
    struct Worker;

    std::filesystem::path root_;
    std::chrono::milliseconds scanBound_;
    std::shared_ptr<Worker> worker_;
};

} // namespace halvo::daemon
