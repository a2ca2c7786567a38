#include "attach/importer.h"

namespace halvo::attach {

std::string refusalText(usbip::Status status, const std::string& busId) {
    using usbip::Status;
    switch (status) {
    case Status::ok:
        return "accepted";
    case Status::notAvailable:
        return "the server has device " + busId + " but not for export (NA)";
    case Status::deviceBusy:
        return "device " + busId + " is busy on the server: another host has it (DEV_BUSY)";
    case Status::deviceError:
        return "the server could not export device " + busId +
               ": its driver or its kernel refused (DEV_ERR)";
    case Status::noDevice:
        return "the server has no device " + busId + " for this host (NODEV)";
    case Status::error:
        return "the server failed to answer (ERROR)";
    }
    return "the server refused with status " + std::to_string(static_cast<unsigned>(status));
}

Outcome<std::vector<usbip::DeviceRecord>> listDevices(const Endpoint& server,
                                                      const Connector& connect) {
    using Result = Outcome<std::vector<usbip::DeviceRecord>>;
    auto channel = connect(server);
    if (!channel) {
        return Result::failed(kNetwork, channel.error());
    }
    auto reply =
        exchange(**channel, usbip::encodeDeviceListRequest(), usbip::OpCode::replyDeviceList);
    if (!reply) {
        return Result::failed(kNetwork, server.text() + ": " + reply.error());
    }
    if (reply->status() != usbip::Status::ok) {
        return Result::failed(kRefused, server.text() + " refused the device list (status " +
                                            std::to_string(static_cast<unsigned>(reply->status())) +
                                            ")");
    }
    return {reply->devices(), kOk, {}};
}

Outcome<Attached> importDevice(const Endpoint& server, const std::string& busId,
                               const Connector& connect, VhciPorts& vhci) {
    using Result = Outcome<Attached>;
    if (busId.empty() || busId.size() >= usbip::kBusIdSize) {
        return Result::failed(kUsage, "bad bus id \"" + busId + "\": 1 to " +
                                          std::to_string(usbip::kBusIdSize - 1) + " characters");
    }
    // Before the server: a missing module should not cost the server an
    // import it then has to take back.
    if (auto ports = vhci.ports(); !ports) {
        return Result::failed(kLocal, ports.error());
    }
    auto channel = connect(server);
    if (!channel) {
        return Result::failed(kNetwork, channel.error());
    }
    auto reply = exchange(**channel, usbip::encodeImportRequest(busId), usbip::OpCode::replyImport);
    if (!reply) {
        return Result::failed(kNetwork, server.text() + ": " + reply.error());
    }
    if (reply->status() != usbip::Status::ok) {
        return Result::failed(kRefused, server.text() + ": " + refusalText(reply->status(), busId));
    }
    const usbip::DeviceRecord& device = reply->devices().front();
    if (device.busId != busId) {
        return Result::failed(kNetwork, server.text() + " answered with device \"" + device.busId +
                                            "\" for " + busId);
    }
    auto ports = vhci.ports();
    if (!ports) {
        return Result::failed(kLocal, ports.error());
    }
    auto port = choosePort(*ports, device.speed);
    if (!port) {
        return Result::failed(kLocal, port.error());
    }
    auto fd = (*channel)->handOff();
    if (!fd) {
        return Result::failed(kLocal, fd.error());
    }
    if (auto done = vhci.attach(attachLine(*port, *fd, device)); !done) {
        return Result::failed(kLocal, done.error());
    }
    return {Attached{*port, device}, kOk, {}};
}

} // namespace halvo::attach
