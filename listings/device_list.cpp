#include "listings/device_list.h"

#include "listings/device_record.h"
#include "util/json_fields.h"
#include "util/text_buffer.h"

#include <cstddef>

namespace halvo::listings {

namespace json = boost::json;

namespace {

constexpr std::size_t tabStop = 8;

std::size_t widestPort(const json::array& devices) {
    std::size_t widest = 0;
    for (const json::value& element : devices) {
        std::size_t width = portWidth(element);
        if (width > widest) {
            widest = width;
        }
    }
    return widest;
}

// The header's name label stands one tab stop left of the rows' name column
// once any port reaches 8 bytes, and gets no extra tab below 16 bytes; the
// daemon's users know the table in this shape, so it is kept.
void writeHeader(util::TextBuffer& buffer, std::size_t portStops) {
    buffer.text("ID\tVID: PID: REV\tPort\t");
    if (portStops >= 2) {
        buffer.repeat('\t', portStops - 1);
    }
    buffer.text("Device name and status\n");
}

void writeStatus(util::TextBuffer& buffer, const DeviceRecord& device) {
    buffer.text(" /");
    if (device.builtIn) {
        buffer.text("built-in, ");
    }
    buffer.cString(device.state);
    if (device.addr) {
        buffer.character('@');
        buffer.cString(*device.addr);
    }
    if (!device.serial.empty()) {
        buffer.text(", ");
        buffer.cString(device.serial);
    }
    buffer.text("/\n");
}

void writeRow(util::TextBuffer& buffer, const DeviceRecord& device, std::size_t portStops) {
    buffer.decimal(device.id);
    buffer.character('\t');
    buffer.hex(device.vid, 4);
    buffer.character(':');
    buffer.hex(device.pid, 4);
    buffer.character(':');
    buffer.hex(device.rev, 4);
    buffer.character('\t');
    buffer.cString(device.port);
    buffer.character('\t');
    // portStops covers the widest port, so it never falls below this one's.
    buffer.repeat('\t', portStops - device.port.size() / tabStop);
    buffer.cString(device.name);
    writeStatus(buffer, device);
}

} // namespace

void outputDeviceList(const json::object& reply, std::FILE* out) {
    const json::array* devices = util::getArray(reply, "devices");
    if (devices == nullptr) {
        return;
    }
    // Whole tab stops covered by the widest port; every row's port column
    // is padded out to the same stop.
    const std::size_t portStops = widestPort(*devices) / tabStop;

    util::TextBuffer buffer(out);
    writeHeader(buffer, portStops);
    for (const json::value& element : *devices) {
        if (auto device = readDeviceRecord(element)) {
            writeRow(buffer, *device, portStops);
        }
    }
}

} // namespace halvo::listings
