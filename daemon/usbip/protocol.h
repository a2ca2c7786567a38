// The USB/IP protocol library (usbip/) in the daemon's terms: its names, and
// the daemon's devices as the wire records them.
#pragma once

#include "daemon/core/device.h"
#include "daemon/core/share_table.h"
#include "usbip/request_parser.h"
#include "usbip/wire.h"

#include <cstdint>
#include <vector>

namespace halvo::daemon::usbip {

using halvo::usbip::OpCode;
using halvo::usbip::Request;
using halvo::usbip::RequestParser;
using halvo::usbip::Status;

halvo::usbip::DeviceRecord toDeviceRecord(const Device& device);

std::vector<std::uint8_t> encodeDeviceList(const std::vector<Device>& devices);
std::vector<std::uint8_t> encodeImportReply(Status status, const Device* device);
// The import reply's status for the share table's answer.
Status wireStatus(ImportStatus status);

} // namespace halvo::daemon::usbip
