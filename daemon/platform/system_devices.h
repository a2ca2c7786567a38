// The machine's own USB devices, where the system lets halvod read them:
// sysfs on Linux. Elsewhere only fixture devices (--devices FILE) exist.
#pragma once

#include "daemon/core/device_backend.h"
#include "daemon/core/share_hand_off.h"
#include "util/expected.h"

#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>

namespace halvo::daemon {

// What this build can serve, for the usage text: "sysfs (Linux), fixture".
extern const char* const kDeviceBackends;

// The backend reading devices below `sysfsRoot`, or why this system has
// none.
util::Expected<std::unique_ptr<DeviceBackend>> openSystemDevices(const std::string& sysfsRoot);

// The kernel's sharing driver for the devices below `sysfsRoot`, reporting
// to `loop`, or why this system has none.
util::Expected<std::unique_ptr<ShareHandOff>> openSystemHandOff(boost::asio::io_context& loop,
                                                                const std::string& sysfsRoot);

} // namespace halvo::daemon
