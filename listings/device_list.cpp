#include "listings/device_list.h"

#include "listings/output_buffer.h"
#include "util/json_fields.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace halvo::listings {

namespace json = boost::json;
using util::findKey;
using util::getFlag;
using util::getString;
using util::getU32;

namespace {

constexpr std::size_t tabStop = 8;

struct DeviceRow {
    std::uint32_t id;
    std::uint32_t vid;
    std::uint32_t pid;
    std::uint32_t rev;
    bool builtIn;
    std::string_view port;
    std::string_view serial;
    std::string_view name;
    std::string_view state;
    std::optional<std::string_view> addr;
};

// The port's width in UTF-8 bytes; elements that cannot be read count as 0
// so that they do not disturb the alignment of the rows that do print.
std::size_t portWidth(const json::value& element) {
    const json::object* device = element.if_object();
    if (device == nullptr) {
        return 0;
    }
    return getString(*device, "port").value_or(std::string_view()).size();
}

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

// The serial may be empty but must be there. A serial of any other JSON
// type (a number, null, ...) has no text of its own to show, so such an
// element is treated as malformed and left out like the others.
std::optional<DeviceRow> readDevice(const json::value& element) {
    const json::object* device = element.if_object();
    if (device == nullptr) {
        return std::nullopt;
    }
    auto id = getU32(*device, "id");
    auto vid = id ? getU32(*device, "vid") : std::nullopt;
    auto pid = vid ? getU32(*device, "pid") : std::nullopt;
    auto rev = pid ? getU32(*device, "rev") : std::nullopt;
    auto builtIn = rev ? getFlag(*device, "built-in") : std::nullopt;
    auto port = builtIn ? getString(*device, "port") : std::nullopt;
    auto serial = port ? getString(*device, "serial") : std::nullopt;
    auto name = serial ? getString(*device, "name") : std::nullopt;
    auto state = name ? getString(*device, "state") : std::nullopt;
    if (!state) {
        return std::nullopt;
    }
    // "addr" is optional, but one that is there must be text.
    auto addr = getString(*device, "addr");
    if (!addr && findKey(*device, "addr") != nullptr) {
        return std::nullopt;
    }
    return DeviceRow{*id, *vid, *pid, *rev, *builtIn, *port, *serial, *name, *state, addr};
}

// The header's name label stands one tab stop left of the rows' name column
// once any port reaches 8 bytes, and gets no extra tab below 16 bytes; the
// daemon's users know the table in this shape, so it is kept.
void writeHeader(OutputBuffer& buffer, std::size_t portStops) {
    buffer.text("ID\tVID: PID: REV\tPort\t");
    if (portStops >= 2) {
        buffer.repeat('\t', portStops - 1);
    }
    buffer.text("Device name and status\n");
}

void writeRow(OutputBuffer& buffer, const DeviceRow& row, std::size_t portStops) {
    buffer.decimal(row.id);
    buffer.character('\t');
    buffer.hex4(row.vid);
    buffer.character(':');
    buffer.hex4(row.pid);
    buffer.character(':');
    buffer.hex4(row.rev);
    buffer.character('\t');
    buffer.text(row.port);
    buffer.character('\t');
    buffer.repeat('\t', portStops - row.port.size() / tabStop);

    buffer.text(row.name);
    buffer.text(" /");
    if (row.builtIn) {
        buffer.text("built-in, ");
    }
    buffer.text(row.state);
    if (row.addr) {
        buffer.character('@');
        buffer.text(*row.addr);
    }
    if (!row.serial.empty()) {
        buffer.text(", ");
        buffer.text(row.serial);
    }
    buffer.text("/\n");
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

    OutputBuffer buffer(out);
    writeHeader(buffer, portStops);
    for (const json::value& element : *devices) {
        if (auto row = readDevice(element)) {
            writeRow(buffer, *row, portStops);
        }
    }
}

} // namespace halvo::listings
