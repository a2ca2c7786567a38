// The USB/IP wire format (protocol version 1.1.1) of the operations halvod
// serves: device lists and imports.  Every integer is big-endian; strings
// are NUL-padded.  Each operation starts with an 8-byte header: version,
// code (u16 each), status (u32).
#pragma once

#include "daemon/core/device.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace halvo::daemon::usbip {

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

// OP_REP_DEVLIST: the header, the device count, then each device's record
// followed by its interfaces (class, subclass, protocol, padding).
std::vector<std::uint8_t> encodeDeviceList(const std::vector<Device>& devices);

// OP_REP_IMPORT: the header with `status`, then the device's record (without
// interfaces) when the status is ok.
std::vector<std::uint8_t> encodeImportReply(Status status, const Device* device);

} // namespace halvo::daemon::usbip
