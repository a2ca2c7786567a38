#include "link/packet.h"

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parser.hpp>
#include <boost/json/serialize.hpp>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

namespace halvo::link {

namespace json = boost::json;

namespace {

void putU32(unsigned char* out, std::uint32_t value) {
    out[0] = static_cast<unsigned char>(value);
    out[1] = static_cast<unsigned char>(value >> 8);
    out[2] = static_cast<unsigned char>(value >> 16);
    out[3] = static_cast<unsigned char>(value >> 24);
}

std::uint32_t getU32(const unsigned char* in) {
    return static_cast<std::uint32_t>(in[0]) | static_cast<std::uint32_t>(in[1]) << 8 |
           static_cast<std::uint32_t>(in[2]) << 16 | static_cast<std::uint32_t>(in[3]) << 24;
}

// Deep enough for any reply the daemon has reason to send; deeper documents
// are refused as not JSON instead of being walked.
constexpr std::size_t kMaxJsonDepth = 512;

DecodedPayload decodeWith(std::string_view bytes, json::storage_ptr temporary,
                          json::storage_ptr arena) {
    json::parse_options options;
    options.max_depth = kMaxJsonDepth;
    json::parser parser(std::move(temporary), options);
    parser.reset(std::move(arena));
    boost::system::error_code error;
    parser.write(bytes.data(), bytes.size(), error);
    if (error) {
        return PayloadError{PayloadError::Kind::notJson, error.message()};
    }
    json::value document = parser.release();
    // The daemon's JSON is read without fragments: a bare string, number,
    // boolean or null is not JSON text at all, while an array is JSON of the
    // wrong shape.
    if (!document.is_object() && !document.is_array()) {
        return PayloadError{PayloadError::Kind::notJson,
                            "JSON text did not start with array or object"};
    }
    if (!document.is_object()) {
        return PayloadError{PayloadError::Kind::notObject, {}};
    }
    return std::move(document.get_object());
}

} // namespace

HeaderBytes encodeHeader(PacketHeader header) {
    HeaderBytes bytes{};
    putU32(bytes.data(), header.command);
    putU32(bytes.data() + 4, header.size);
    return bytes;
}

PacketHeader decodeHeader(const unsigned char* bytes) {
    return PacketHeader{getU32(bytes), getU32(bytes + 4)};
}

std::string encodePacket(std::uint32_t command, std::string_view payload) {
    std::string packet(kHeaderSize + payload.size(), '\0');
    if (payload.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("packet payload of " + std::to_string(payload.size()) + " bytes");
    }
    HeaderBytes header = encodeHeader({command, static_cast<std::uint32_t>(payload.size())});
    std::memcpy(packet.data(), header.data(), header.size());
    if (!payload.empty()) {
        std::memcpy(packet.data() + kHeaderSize, payload.data(), payload.size());
    }
    return packet;
}

std::string encodePacket(std::uint32_t command, const json::object& payload) {
    return encodePacket(command, json::serialize(payload));
}

std::string encodePacket(std::uint32_t command) {
    return encodePacket(command, std::string_view{});
}

DecodedPayload decodePayload(std::string_view bytes) {
    // One arena per payload: replies are parsed once, read, and dropped whole.
    return decodeWith(bytes, {}, json::make_shared_resource<json::monotonic_resource>());
}

DecodedPayload decodePayload(std::string_view bytes, const json::storage_ptr& memory) {
    try {
        // The parser's own stack of unfinished values (16 bytes per number of
        // an array, as many as the array holds) is taken from the same bound
        // as the document.
        return decodeWith(bytes, memory,
                          json::make_shared_resource<json::monotonic_resource>(1024, memory));
    } catch (const std::bad_alloc&) {
        return PayloadError{PayloadError::Kind::notJson, "too large to parse"};
    }
}

} // namespace halvo::link
