// The USB/IP wire format (protocol version 1.1.1) of the operations that
// halvod serves and halvo-attach asks for: device lists and imports.  Every integer is big-endian;
// strings are NUL-padded.  Each operation starts with an 8-byte header: version, code (u16 each),
// status (u32).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace halvo::usbip {

inline constexpr std::uint16_t kVersion = 0x0111;
inline constexpr std::size_t kHeaderSize = 8;
inline constexpr std::size_t kBusIdSize = 32;
inline constexpr std::size_t kPathSize = 256;
inline constexpr std::size_t kDeviceRecordSize = 312;
inline constexpr std::size_t kInterfaceRecordSize = 4;

enum class OpCode : std::uint16_t {
    requestImport = 0x8003,
    replyImport = 0x0003,
    requestDeviceList = 0x8005,
    replyDeviceList = 0x0005,
};

enum class Status : std::uint32_t {
    ok = 0,
    notAvailable = 1,
    deviceBusy = 2,
    deviceError = 3,
    noDevice = 4,
    error = 5,
};

// How a device presents itself on its bus, as a host that imports it sees
// it: the part of the wire's device record beyond the device's identity.
// halvod keeps it with each device it knows.
struct BusDescription {
    // The device's folder under /sys/devices on the exporting host.
    std::string path;
    std::uint32_t busnum = 0;
    std::uint32_t devnum = 0;
    // The kernel's speed code: 1 low, 2 full, 3 high, 4 wireless, 5 super,
    // 6 super-plus; 0 unknown.
    std::uint32_t speed = 0;
    // The class triple as the device declares it (0 when each interface
    // names its own).
    std::uint8_t deviceClass = 0;
    std::uint8_t deviceSubClass = 0;
    std::uint8_t deviceProtocol = 0;
    std::uint8_t configurationValue = 0;
    std::uint8_t numConfigurations = 0;
    struct Interface {
        std::uint8_t interfaceClass = 0;
        std::uint8_t subclass = 0;
        std::uint8_t protocol = 0;
        bool operator==(const Interface&) const = default;
    };
    // The interfaces of the active configuration, in interface order; the
    // record's count is one byte, so at most 255 go on the wire.
    std::vector<Interface> interfaces;

    bool operator==(const BusDescription&) const = default;
};

// A device as the wire describes it: its bus description and its identity.
struct DeviceRecord : BusDescription {
    // The device's name on the exporting host ("1-2.3").
    std::string busId;
    std::uint16_t vid = 0;
    std::uint16_t pid = 0;
    std::uint16_t rev = 0;

    bool operator==(const DeviceRecord&) const = default;
};

// OP_REQ_DEVLIST: the header alone.
std::vector<std::uint8_t> encodeDeviceListRequest();

// OP_REQ_IMPORT: the header and the bus id in its NUL-padded field; the id
// must be shorter than kBusIdSize.
std::vector<std::uint8_t> encodeImportRequest(const std::string& busId);

// OP_REP_DEVLIST: the header, the device count, then each device's record
// followed by its interfaces (class, subclass, protocol, padding).
std::vector<std::uint8_t> encodeDeviceList(const std::vector<DeviceRecord>& devices);

// OP_REP_IMPORT refusing: the header with `status` alone.
std::vector<std::uint8_t> encodeImportReply(Status status);
// OP_REP_IMPORT accepting: the header, then the device's record (without
// interfaces).
std::vector<std::uint8_t> encodeImportReply(const DeviceRecord& device);

// A version or an operation code as the parsers' messages show it: "0x0111".
std::string hex4(unsigned value);

} // namespace halvo::usbip
