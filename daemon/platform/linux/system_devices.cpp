#include "daemon/platform/system_devices.h"

#include "daemon/platform/linux/sysfs_backend.h"
#include "daemon/platform/linux/usbip_host.h"

namespace halvo::daemon {

const char* const kDeviceBackends = "sysfs (--sysfs DIR), fixture (--devices FILE)";

util::Expected<std::unique_ptr<DeviceBackend>> openSystemDevices(const std::string& sysfsRoot) {
    return std::make_unique<SysfsBackend>(sysfsRoot);
}

util::Expected<std::unique_ptr<ShareHandOff>> openSystemHandOff(boost::asio::io_context& loop,
                                                                const std::string& sysfsRoot) {
    return std::make_unique<UsbipHost>(loop, sysfsRoot);
}

} // namespace halvo::daemon
