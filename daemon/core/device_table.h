// The devices the daemon serves, with the ids that clients name them by.
//
// A device keeps its id for as long as successive scans find it (same port,
// vendor, product and serial); a new device gets the next unused id, so an id
// is never given to two devices in one run.  A device that is shared stays
// "shared" across rescans until the share ends.
#pragma once

#include "daemon/core/device.h"
#include "daemon/core/event.h"

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <vector>

namespace halvo::daemon {

class DeviceTable {
  public:
    // Replaces the table's contents with a scan and returns the device events
    // for the differences: "plugged" for a new device, "unplugged" for one
    // that is gone, the new state for one whose state changed.
    std::vector<Event> update(std::vector<Device> scanned);

    const Device* find(std::uint32_t id) const;
    const std::vector<Device>& devices() const { return devices_; }

    // The device-list reply: {"devices": [...]}.
    boost::json::object listReply() const;

    // Records that the device was unplugged: it is detached from its peer
    // and offered again ("available").  Returns the "unplugged" event, or
    // nothing for an unknown id.
    std::optional<Event> recordUnplug(std::uint32_t id);

    // Records that the device is shared with `addr` (or, without one, no
    // longer shared: "available") and returns its device event.
    std::optional<Event> recordShare(std::uint32_t id, std::optional<std::string> addr);

  private:
    std::vector<Device> devices_;
    std::uint32_t nextId_ = 1;
};

} // namespace halvo::daemon
