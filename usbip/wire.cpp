#include "usbip/wire.h"

#include <algorithm>
#include <cstdio>

namespace halvo::usbip {

namespace {

// The record's count is one byte; sysfs never shows more interfaces.
std::size_t interfaceCount(const DeviceRecord& device) {
    return std::min<std::size_t>(device.interfaces.size(), 255);
}

class Encoder {
  public:
    void u8(std::uint8_t value) { bytes_.push_back(value); }
    void u16(std::uint16_t value) {
        u8(static_cast<std::uint8_t>(value >> 8));
        u8(static_cast<std::uint8_t>(value));
    }
    void u32(std::uint32_t value) {
        u16(static_cast<std::uint16_t>(value >> 16));
        u16(static_cast<std::uint16_t>(value));
    }
    // Cut to `size - 1` bytes so that a NUL always ends the text.
    void text(const std::string& value, std::size_t size) {
        const std::size_t length = std::min(value.size(), size - 1);
        bytes_.insert(bytes_.end(), value.begin(), value.begin() + static_cast<long>(length));
        bytes_.insert(bytes_.end(), size - length, 0);
    }
    void header(OpCode code, Status status) {
        u16(kVersion);
        u16(static_cast<std::uint16_t>(code));
        u32(static_cast<std::uint32_t>(status));
    }
    void deviceRecord(const DeviceRecord& device) {
        text(device.path, kPathSize);
        text(device.busId, kBusIdSize);
        u32(device.busnum);
        u32(device.devnum);
        u32(device.speed);
        u16(device.vid);
        u16(device.pid);
        u16(device.rev);
        u8(device.deviceClass);
        u8(device.deviceSubClass);
        u8(device.deviceProtocol);
        u8(device.configurationValue);
        u8(device.numConfigurations);
        u8(static_cast<std::uint8_t>(interfaceCount(device)));
    }
    std::vector<std::uint8_t> take() { return std::move(bytes_); }

  private:
    std::vector<std::uint8_t> bytes_;
};

} // namespace

std::vector<std::uint8_t> encodeDeviceListRequest() {
    Encoder out;
    out.header(OpCode::requestDeviceList, Status::ok);
    return out.take();
}

std::vector<std::uint8_t> encodeImportRequest(const std::string& busId) {
    Encoder out;
    out.header(OpCode::requestImport, Status::ok);
    out.text(busId, kBusIdSize);
    return out.take();
}

std::vector<std::uint8_t> encodeDeviceList(const std::vector<DeviceRecord>& devices) {
    Encoder out;
    out.header(OpCode::replyDeviceList, Status::ok);
    out.u32(static_cast<std::uint32_t>(devices.size()));
    for (const DeviceRecord& device : devices) {
        out.deviceRecord(device);
        for (std::size_t index = 0; index < interfaceCount(device); ++index) {
            const DeviceRecord::Interface& interface = device.interfaces[index];
            out.u8(interface.interfaceClass);
            out.u8(interface.subclass);
            out.u8(interface.protocol);
            out.u8(0);
        }
    }
    return out.take();
}

std::vector<std::uint8_t> encodeImportReply(Status status) {
    Encoder out;
    out.header(OpCode::replyImport, status);
    return out.take();
}

std::vector<std::uint8_t> encodeImportReply(const DeviceRecord& device) {
    Encoder out;
    out.header(OpCode::replyImport, Status::ok);
    out.deviceRecord(device);
    return out.take();
}

std::string hex4(unsigned value) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%04x", value);
    return text;
}

} // namespace halvo::usbip
