// The client's receive state machine on an arbitrary byte stream, fed as the
// transport feeds it: one piece per receive, of the size the client asked
// for (the last one short), each a heap block of exactly that size so that a
// read past its end is an AddressSanitizer report. onData must see exactly
// the complete, well-sized packets holding a JSON object, in order, up to
// the first packet the client refuses.
#include "fuzz/fuzz_streams.h"
#include "link/halvo_ipc_client.h"
#include "link/packet.h"
#include "tests/support/capturing_logger.h"

#include <algorithm>
#include <boost/json/serialize.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <variant>
#include <vector>

namespace {

namespace json = boost::json;
namespace link = halvo::link;
using halvo::fuzz::fail;

struct Delivery {
    std::uint32_t command;
    json::object payload;
};

// What the packets of `stream` should deliver, read with the packet
// functions: the framing is under test here, not the JSON reader.
std::vector<Delivery> expectedDeliveries(std::string_view stream) {
    std::vector<Delivery> deliveries;
    while (stream.size() >= link::kHeaderSize) {
        const link::PacketHeader header =
            link::decodeHeader(reinterpret_cast<const unsigned char*>(stream.data()));
        stream.remove_prefix(link::kHeaderSize);
        if (!link::isValidPayloadSize(header.size) || stream.size() < header.size) {
            break;
        }
        link::DecodedPayload decoded = link::decodePayload(stream.substr(0, header.size));
        stream.remove_prefix(header.size);
        auto* object = std::get_if<json::object>(&decoded);
        if (object == nullptr) {
            break;
        }
        deliveries.push_back({header.command, std::move(*object)});
    }
    return deliveries;
}

// The length of the next piece: what the client asked for, or what is left.
std::size_t nextPieceSize(const link::QVHalvoIPCClient& client, std::size_t left) {
    const auto [min, max] = client.nextPacketSize();
    if (min != max || min == 0) {
        fail("the client asked for a range or an empty piece, not an exact size");
    }
    return std::min<std::size_t>(min, left);
}

std::vector<Delivery> feed(link::QVHalvoIPCClient& client, std::string_view stream) {
    std::vector<Delivery> delivered;
    client.setOnData([&delivered](std::uint32_t command, const json::object& payload) {
        delivered.push_back({command, payload});
    });
    while (!stream.empty()) {
        const std::size_t size = nextPieceSize(client, stream.size());
        const auto piece = std::make_unique_for_overwrite<char[]>(size);
        std::memcpy(piece.get(), stream.data(), size);
        stream.remove_prefix(size);
        if (!client.parseProtocolPacket(std::string_view(piece.get(), size))) {
            break;
        }
    }
    return delivered;
}

std::string describe(const std::vector<Delivery>& deliveries) {
    std::string text;
    for (const auto& [command, payload] : deliveries) {
        text += std::to_string(command) + " " + json::serialize(payload) + "\n";
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view stream(reinterpret_cast<const char*>(data), size);
    // Made but never started: nothing connects, the state machine is fed by hand.
    auto client = link::QVHalvoIPCClient::initWithLogger(
        std::make_shared<halvo::testkit::CapturingLogger>(), link::kDaemonHost, link::kDaemonPort);
    if (!client) {
        fail("the client could not be made");
    }
    const std::vector<Delivery> delivered = feed(*client, stream);
    const std::vector<Delivery> expected = expectedDeliveries(stream);
    const bool same = std::equal(delivered.begin(), delivered.end(), expected.begin(),
                                 expected.end(), [](const Delivery& a, const Delivery& b) {
                                     return a.command == b.command && a.payload == b.payload;
                                 });
    if (!same) {
        fail("onData did not see the stream's packets",
             "delivered:\n" + describe(delivered) + "expected:\n" + describe(expected));
    }
    return 0;
}
