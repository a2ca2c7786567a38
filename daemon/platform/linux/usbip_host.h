// Sharing through the Linux kernel's usbip-host driver, steered through the
// USB bus's sysfs folder (the parent of the `devices/` folder that the
// device backend reads):
//   hand over: "add BUSID" to drivers/usbip-host/match_busid; BUSID to the
//     current driver's `unbind` (when bound) and to drivers/usbip-host/bind;
//     the socket's descriptor number and "\n" to devices/BUSID/usbip_sockfd
//     (the kernel takes its own reference to the socket);
//   in use: devices/BUSID/usbip_status reads 2 (1 available, 3 error);
//   end: "-1" to usbip_sockfd while in use, then a wait (at most 3 s) until
//     usbip_status leaves 2; then the device goes back:
//     BUSID to drivers/usbip-host/unbind, "del BUSID" to match_busid, BUSID
//     to drivers/usbip-host/rebind, which binds its own driver again and
//     frees the busid's slot in usbip-host's table (16 slots; "del" alone
//     keeps the slot of a device that was bound). The bus's drivers_probe
//     only stands in when rebind fails; a device that went away is not
//     rebound (the kernel would reach for a device that no longer exists).
// A device whose `driver` link names usbip-host at start-up is a leftover.
#pragma once

#include "daemon/core/share_hand_off.h"

#include <filesystem>
#include <functional>
#include <string_view>

namespace halvo::daemon {

class UsbipHost final : public ShareHandOff {
  public:
    // Writes one attribute; the reason on failure.
    using Writer =
        std::function<util::Expected<void>(const std::filesystem::path&, std::string_view)>;

    // `devicesRoot` is the bus's devices folder (/sys/bus/usb/devices);
    // `writer` defaults to writing the files.
    explicit UsbipHost(const std::filesystem::path& devicesRoot, Writer writer = {});

    util::Expected<void> handOver(const Device& device, int socketFd) override;
    bool inUse(const Device& device) override;
    util::Expected<void> end(const Device& device) override;
    Recovery recoverLeftovers() override;

  private:
    // Each step of giving `port` back, even after one failed; the first
    // failure. Nothing to give back, and no failure, when the device is gone.
    util::Expected<void> giveBack(const std::string& port);

    std::filesystem::path devices_;
    std::filesystem::path bus_;
    std::filesystem::path driver_;
    Writer write_;
};

} // namespace halvo::daemon
