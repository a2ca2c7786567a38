#include "daemon/usbip/protocol.h"

namespace halvo::daemon::usbip {

halvo::usbip::DeviceRecord toDeviceRecord(const Device& device) {
    halvo::usbip::DeviceRecord record;
    static_cast<BusDescription&>(record) = device.bus;
    record.busId = device.port;
    record.vid = device.vid;
    record.pid = device.pid;
    record.rev = device.rev;
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
