// Systems without sysfs: the machine's devices cannot be read (yet), so
// halvod serves fixture devices only.
#include "daemon/platform/system_devices.h"

namespace halvo::daemon {

const char* const kDeviceBackends = "fixture (--devices FILE)";

util::Expected<std::unique_ptr<DeviceBackend>> openSystemDevices(const std::string&) {
    return util::Failure{"sysfs devices are available only on Linux; use --devices FILE"};
}

util::Expected<std::unique_ptr<ShareHandOff>> openSystemHandOff(boost::asio::io_context&,
                                                                const std::string&) {
    return util::Failure{"sharing sysfs devices needs Linux's usbip-host; use --devices FILE"};
}

} // namespace halvo::daemon
