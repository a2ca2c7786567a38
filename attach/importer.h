// What halvo-attach does with a server: list its devices, import one and
// give it to vhci-hcd.  Each step's failure carries the exit status of its
// kind (see exit_status.h) and a message for the user.
#pragma once

#include "attach/channel.h"
#include "attach/exit_status.h"
#include "attach/vhci.h"

#include <optional>
#include <string>
#include <vector>

namespace halvo::attach {

template <typename T> struct Outcome {
    std::optional<T> value;
    ExitStatus status = kOk;
    std::string message;

    static Outcome failed(ExitStatus status, std::string message) {
        return {std::nullopt, status, std::move(message)};
    }
};

// What the server's refusal means, for `busId` (NODEV, DEV_BUSY, ...).
std::string refusalText(usbip::Status status, const std::string& busId);

Outcome<std::vector<usbip::DeviceRecord>> listDevices(const Endpoint& server,
                                                      const Connector& connect);

struct Attached {
    VhciPort port;
    usbip::DeviceRecord device;
};

// Requests `busId`, then attaches it to a free vhci port of its speed.
Outcome<Attached> importDevice(const Endpoint& server, const std::string& busId,
                               const Connector& connect, VhciPorts& vhci);

} // namespace halvo::attach
