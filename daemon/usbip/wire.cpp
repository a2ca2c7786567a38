#include "daemon/usbip/wire.h"

#include <algorithm>

namespace halvo::daemon::usbip {

namespace {

// The record's count is one byte; sysfs never shows more interfaces.
std::size_t interfaceCount(const Device& device) {
    return std::min<std::size_t>(device.bus.interfaces.size(), 255);
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
    void deviceRecord(const Device& device) {
        const BusDescription& bus = device.bus;
        text(bus.sysfsPath, kPathSize);
        text(device.port, kBusIdSize);
        u32(bus.busnum);
        u32(bus.devnum);
        u32(bus.speed);
        u16(device.vid);
        u16(device.pid);
        u16(device.rev);
        u8(bus.deviceClass);
        u8(bus.deviceSubClass);
        u8(bus.deviceProtocol);
        u8(bus.configurationValue);
        u8(bus.numConfigurations);
        u8(static_cast<std::uint8_t>(interfaceCount(device)));
    }
    std::vector<std::uint8_t> take() { return std::move(bytes_); }

  private:
    std::vector<std::uint8_t> bytes_;
};

} // namespace

std::vector<std::uint8_t> encodeDeviceList(const std::vector<Device>& devices) {
    Encoder out;
    out.header(OpCode::replyDeviceList, Status::ok);
    out.u32(static_cast<std::uint32_t>(devices.size()));
    for (const Device& device : devices) {
        out.deviceRecord(device);
        for (std::size_t index = 0; index < interfaceCount(device); ++index) {
            const BusDescription::Interface& interface = device.bus.interfaces[index];
            out.u8(interface.interfaceClass);
            out.u8(interface.subclass);
            out.u8(interface.protocol);
            out.u8(0);
        }
    }
    return out.take();
}

std::vector<std::uint8_t> encodeImportReply(Status status, const Device* device) {
    Encoder out;
    out.header(OpCode::replyImport, status);
    if (status == Status::ok && device != nullptr) {
        out.deviceRecord(*device);
    }
    return out.take();
}

} // namespace halvo::daemon::usbip
