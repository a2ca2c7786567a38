// Where the daemon's devices come from: the host's USB bus or a fixture.
#pragma once

#include "daemon/core/device.h"
#include "util/expected.h"

#include <string>
#include <vector>

namespace halvo::daemon {

struct ScanResult {
    std::vector<Device> devices;
    // Empty on success; the reason the scan failed otherwise.
    std::string error;
};

class DeviceBackend {
  public:
    virtual ~DeviceBackend() = default;

    // The devices present now, ids unassigned.
    virtual ScanResult scan() = 0;

    // Detaches the device from whoever uses it and lets the host enumerate
    // it again.  Returns the reason on failure.
    virtual util::Expected<void> unplug(const Device& device) = 0;

    // Whether devices can come and go, so that periodic rescans are useful.
    virtual bool seesHotplug() const = 0;
};

} // namespace halvo::daemon
