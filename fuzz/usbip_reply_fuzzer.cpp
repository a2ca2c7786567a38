// halvo-attach's USB/IP reply parser on an arbitrary byte stream from a
// hostile server.  The first input byte picks the reply expected (bit 7: an
// import, else a device list) and the piece size (1 to 16 bytes).  The
// parser must never take more than the reply lacks, never hold more devices
// than it was sent, and what it accepts must encode to a reply that it reads
// back the same.
#include "fuzz/fuzz_streams.h"
#include "usbip/reply_parser.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace {

namespace usbip = halvo::usbip;
using halvo::fuzz::fail;

usbip::ReplyParser parseAll(usbip::OpCode expected, std::span<const std::uint8_t> stream,
                            std::size_t piece, std::size_t& taken) {
    usbip::ReplyParser parser(expected);
    taken = 0;
    while (parser.missing() > 0 && taken < stream.size()) {
        const std::size_t length = std::min(piece, stream.size() - taken);
        const std::size_t missingBefore = parser.missing();
        const std::size_t took = parser.feed(stream.subspan(taken, length));
        if (took > length || (took > 0 && took < length && parser.missing() > 0)) {
            fail("took part of a piece yet wants more");
        }
        if (took == 0 && missingBefore > 0) {
            fail("wants bytes but took none");
        }
        taken += took;
    }
    return parser;
}

// The bytes the parsed reply takes on the wire.
std::size_t wireSize(const usbip::ReplyParser& parser, usbip::OpCode expected) {
    if (parser.status() != usbip::Status::ok) {
        return usbip::kHeaderSize;
    }
    if (expected == usbip::OpCode::replyImport) {
        return usbip::kHeaderSize + usbip::kDeviceRecordSize;
    }
    std::size_t size = usbip::kHeaderSize + 4;
    for (const usbip::DeviceRecord& device : parser.devices()) {
        size += usbip::kDeviceRecordSize + device.interfaces.size() * usbip::kInterfaceRecordSize;
    }
    return size;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const auto expected =
        (data[0] & 0x80) != 0 ? usbip::OpCode::replyImport : usbip::OpCode::replyDeviceList;
    const std::size_t piece = std::size_t{data[0]} % 16 + 1;
    const std::span<const std::uint8_t> stream(data + 1, size - 1);

    std::size_t taken = 0;
    const usbip::ReplyParser parser = parseAll(expected, stream, piece, taken);
    if (parser.devices().size() * usbip::kDeviceRecordSize > taken) {
        fail("holds more devices than it was sent");
    }
    if (!parser.complete()) {
        return 0;
    }
    if (taken != wireSize(parser, expected)) {
        fail("took another size than the reply's");
    }
    if (parser.status() != usbip::Status::ok) {
        return 0;
    }
    // Text past a field's NUL is dropped, so the bytes may differ; what they
    // say may not.
    const auto again = expected == usbip::OpCode::replyImport
                           ? usbip::encodeImportReply(parser.devices().at(0))
                           : usbip::encodeDeviceList(parser.devices());
    std::size_t retaken = 0;
    const usbip::ReplyParser reread = parseAll(expected, again, 4096, retaken);
    if (!reread.complete() || retaken != again.size()) {
        fail("refused its own encoding of a reply it accepted");
    }
    if (expected == usbip::OpCode::replyDeviceList && reread.devices() != parser.devices()) {
        fail("a device list reads back otherwise");
    }
    if (expected == usbip::OpCode::replyImport &&
        reread.devices().at(0).busId != parser.devices().at(0).busId) {
        fail("an import reads back otherwise");
    }
    return 0;
}
