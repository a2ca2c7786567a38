// halvod's USB/IP request parser on an arbitrary byte stream, trickling in
// pieces of 1 to 16 bytes (the first input byte picks): it must never take
// more than one request's bytes, and must accept exactly the well-formed
// device-list and import requests that start the stream, with their bus id.
#include "fuzz/fuzz_streams.h"
#include "usbip/request_parser.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

namespace usbip = halvo::usbip;
using halvo::fuzz::fail;

// The bus id an import request in `bytes` carries, or "" when it has none
// (too short, no NUL in the field, empty).
std::string expectedBusId(const std::uint8_t* bytes, std::size_t size) {
    if (size < usbip::kHeaderSize + usbip::kBusIdSize) {
        return "";
    }
    const auto* field = bytes + usbip::kHeaderSize;
    const auto* nul = std::find(field, field + usbip::kBusIdSize, 0);
    return nul == field + usbip::kBusIdSize ? "" : std::string(field, nul);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::size_t piece = std::size_t{data[0]} % 16 + 1;
    const std::uint8_t* stream = data + 1;
    const std::size_t streamSize = size - 1;

    usbip::RequestParser parser;
    std::size_t offered = 0;
    std::size_t taken = 0;
    while (parser.missing() > 0 && offered < streamSize) {
        const std::size_t length = std::min(piece, streamSize - offered);
        const std::size_t missingBefore = parser.missing();
        const std::size_t took = parser.feed(std::span(stream + offered, length));
        if (took > missingBefore || took > length) {
            fail("took more than the request lacks");
        }
        taken += took;
        offered += took;
    }
    if (taken > usbip::kHeaderSize + usbip::kBusIdSize) {
        fail("took more than one request");
    }

    const bool isCurrent = streamSize >= 4 && stream[0] == 0x01 && stream[1] == 0x11;
    const bool isList = isCurrent && stream[2] == 0x80 && stream[3] == 0x05;
    const bool isImport = isCurrent && stream[2] == 0x80 && stream[3] == 0x03;
    const std::string busId = isImport ? expectedBusId(stream, streamSize) : "";
    const bool wellFormed = (isList && streamSize >= usbip::kHeaderSize) || !busId.empty();
    if (wellFormed != parser.request().has_value()) {
        fail("accepted a malformed request or refused a well-formed one");
    }
    if (parser.request() && parser.request()->busId != busId) {
        fail("bus id differs", parser.request()->busId);
    }
    if (!parser.error().empty() && parser.missing() != 0) {
        fail("refused but still wants bytes");
    }
    return 0;
}
