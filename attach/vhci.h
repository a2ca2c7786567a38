// The kernel's USB/IP importer (the vhci-hcd module) as halvo-attach needs
// it: its ports and their state, and giving it a connected socket to attach
// or a port to detach.  VhciPorts is the interface; the Linux one writes the
// sysfs files of vhci_hcd.0, the test one records what it was told.
#pragma once

#include "usbip/wire.h"
#include "util/expected.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace halvo::attach {

using Done = std::monostate;

struct VhciPort {
    // The port number as the attach and detach files take it.
    unsigned number = 0;
    // Whether the port is on the SuperSpeed root hub ("ss") or the
    // high-speed one ("hs").
    bool superSpeed = false;
    bool used = false;
    // Of a used port: the device's id on the server (busnum << 16 | devnum),
    // its speed code and its local bus id ("3-1").
    std::uint32_t devid = 0;
    std::uint32_t speed = 0;
    std::string localBusId;
};

class VhciPorts {
  public:
    virtual ~VhciPorts() = default;
    // Every port of every vhci controller, or why they cannot be read
    // (naming the module to load when vhci-hcd is missing).
    virtual util::Expected<std::vector<VhciPort>> ports() = 0;
    // Writes the attach line (see attachLine); the kernel takes its own
    // reference to the socket.
    virtual util::Expected<Done> attach(const std::string& line) = 0;
    virtual util::Expected<Done> detach(unsigned port) = 0;
};

// Reads the kernel's status table (the status, status.1, ... files): a title
// line, then "hs  0000 004 000 00000000 000000 0-0" per port (hub, port,
// state, speed, devid, socket, local bus id).  Lines that do not read so are
// skipped.
std::vector<VhciPort> parseVhciStatus(std::string_view text);

// The free port for a device of the kernel's `speed` code: SuperSpeed
// devices go to the SuperSpeed hub, every slower one to the high-speed hub;
// the lowest free port of that hub, or why there is none.
util::Expected<VhciPort> choosePort(const std::vector<VhciPort>& ports, std::uint32_t speed);

// "PORT SOCKFD DEVID SPEED", the line the attach file takes for `device` on
// `port` over socket `fd`; SuperSpeedPlus devices present themselves as
// SuperSpeed, which is what the vhci root hub runs at.
std::string attachLine(const VhciPort& port, int fd, const usbip::DeviceRecord& device);

// The id the kernel knows a remote device by: busnum << 16 | devnum.
std::uint32_t deviceId(const usbip::DeviceRecord& device);

// The speed code as a word ("high", "super", ...).
std::string speedName(std::uint32_t speed);

} // namespace halvo::attach
