#include "daemon/usbip/protocol.h"

namespace halvo::daemon::usbip {

halvo::usbip::DeviceRecord toDeviceRecord(const Device& device) {
    const BusDescription& bus = device.bus;
    halvo::usbip::DeviceRecord record;
    record.path = bus.sysfsPath;
    record.busId = device.port;
    record.busnum = bus.busnum;
    record.devnum = bus.devnum;
    record.speed = bus.speed;
    record.vid = device.vid;
    record.pid = device.pid;
    record.rev = device.rev;
    record.deviceClass = bus.deviceClass;
    record.deviceSubClass = bus.deviceSubClass;
    record.deviceProtocol = bus.deviceProtocol;
    record.configurationValue = bus.configurationValue;
    record.numConfigurations = bus.numConfigurations;
    for (const BusDescription::Interface& interface : bus.interfaces) {
        record.interfaces.push_back(
            {interface.interfaceClass, interface.subclass, interface.protocol});
    }
    return record;
}

std::vector<std::uint8_t> encodeDeviceList(const std::vector<Device>& devices) {
    std::vector<halvo::usbip::DeviceRecord> records;
    records.reserve(devices.size());
    for (const Device& device : devices) {
        records.push_back(toDeviceRecord(device));
    }
    return halvo::usbip::encodeDeviceList(records);
}

std::vector<std::uint8_t> encodeImportReply(Status status, const Device* device) {
    if (status != Status::ok || device == nullptr) {
        return halvo::usbip::encodeImportReply(status);
    }
    return halvo::usbip::encodeImportReply(toDeviceRecord(*device));
}

Status wireStatus(ImportStatus status) {
    switch (status) {
    case ImportStatus::ok:
        return Status::ok;
    case ImportStatus::busy:
        return Status::deviceBusy;
    case ImportStatus::noDevice:
        return Status::noDevice;
    case ImportStatus::error:
        break;
    }
    return Status::deviceError;
}

} // namespace halvo::daemon::usbip
