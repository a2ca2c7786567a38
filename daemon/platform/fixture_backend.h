// Devices from a JSON fixture instead of the USB bus, for demonstrations
// and tests.  The fixture is {"devices": [...]}, one object per device with
// the device-list keys ("vid", "pid", "rev", "port", "name" required;
// "built-in", "serial", "state", "addr", "class", "subclass", "protocol"
// optional); ids are given in file order from 1.  The set never changes.
#pragma once

#include "daemon/core/device_backend.h"
#include "util/expected.h"

#include <boost/json/object.hpp>
#include <memory>
#include <string>
#include <vector>

namespace halvo::daemon {

// The fixture's devices, or the first fault found ("device #N: ...").
util::Expected<std::vector<Device>> parseDeviceFixture(const boost::json::object& document);

class FixtureBackend final : public DeviceBackend {
  public:
    explicit FixtureBackend(std::vector<Device> devices);

    // The backend for the fixture file at `path`, or why it cannot be read.
    static util::Expected<std::unique_ptr<FixtureBackend>> fromFile(const std::string& path);

    ScanResult scan() override;
    // Nothing physical to do: the device table records the state change.
    util::Expected<void> unplug(const Device& device) override;
    bool seesHotplug() const override { return false; }

  private:
    std::vector<Device> devices_;
};

} // namespace halvo::daemon
