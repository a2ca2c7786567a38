// The IPC packet: an 8-byte header (command code, payload size; unsigned
// 32-bit little-endian each) followed by a JSON payload.  Both the utility
// and the daemon frame packets through these functions.
#pragma once

#include <array>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace halvo::link {

enum class CommandCode : std::uint32_t {
    deviceList = 0,
    connectionList = 1,
    killConnection = 2,
    disconnectDevice = 3,
    deviceEvent = 4,
    hostEvent = 5,
    startRuleTransaction = 6,
    ruleList = 7,
    loadRuleList = 8,
    insertRuleForDevice = 9,
    testRule = 10,
    endRuleTransaction = 11,
};

constexpr std::uint32_t code(CommandCode command) {
    return static_cast<std::uint32_t>(command);
}

inline constexpr std::size_t kHeaderSize = 8;
// Received payloads must hold 1 to 100 MiB; a sender may still send size 0.
inline constexpr std::uint32_t kMaxPayloadSize = 100u * 1024u * 1024u;

struct PacketHeader {
    std::uint32_t command = 0;
    std::uint32_t size = 0;
};

using HeaderBytes = std::array<unsigned char, kHeaderSize>;

HeaderBytes encodeHeader(PacketHeader header);
// Reads exactly kHeaderSize bytes.
PacketHeader decodeHeader(const unsigned char* bytes);

// 1 <= size <= kMaxPayloadSize, computed as the unsigned wrap of size - 1 so
// that 0 is refused too.
constexpr bool isValidPayloadSize(std::uint32_t size) {
    return static_cast<std::uint32_t>(size - 1u) < kMaxPayloadSize;
}

// Header and payload as one buffer, ready for a single send. A payload whose
// size does not fit the header's 32 bits is a programming error: it throws
// std::length_error rather than send a wrong size.
std::string encodePacket(std::uint32_t command, std::string_view payload);
std::string encodePacket(std::uint32_t command, const boost::json::object& payload);
std::string encodePacket(std::uint32_t command);

// A received payload decoded as the JSON object it must be.  The value keeps
// its own arena alive, so the callee may keep it.
struct PayloadError {
    enum class Kind { notJson, notObject } kind;
    std::string description;
};
using DecodedPayload = std::variant<boost::json::object, PayloadError>;
DecodedPayload decodePayload(std::string_view bytes);
// The same, parsing within `memory` (a link::BoundedMemory): the document and
// the parse's own working memory are taken from it, and a document that would
// take more is given up as not JSON, "too large to parse". The object keeps
// `memory`.
DecodedPayload decodePayload(std::string_view bytes, const boost::json::storage_ptr& memory);

} // namespace halvo::link
