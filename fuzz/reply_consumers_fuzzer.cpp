// Every consumer of a daemon reply on arbitrary JSON objects: the device
// and connection tables, the rule list (numbered and not), the monitor's
// device and host events, and the status check. An input that begins with
// "{" is read as JSON text, the way the client decodes a payload; any other
// input drives a builder of objects made of the keys the consumers read.
#include "cli/event_printer.h"
#include "cli/reply_status.h"
#include "fuzz/fuzz_streams.h"
#include "fuzz/reply_builder.h"
#include "link/packet.h"
#include "listings/connection_list.h"
#include "listings/device_list.h"
#include "rules/rule_printer.h"
#include "tests/support/stream_capture.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace {

namespace json = boost::json;
using halvo::fuzz::fail;

std::optional<json::object> decodedReply(std::string_view text) {
    halvo::link::DecodedPayload decoded = halvo::link::decodePayload(text);
    if (auto* object = std::get_if<json::object>(&decoded)) {
        return std::move(*object);
    }
    return std::nullopt;
}

void printRules(const json::object& reply, std::uint32_t numbered) {
    int status = 0;
    const std::string text = halvo::testkit::printedBy(
        [&](std::FILE* out) { status = halvo::rules::outputRuleList(reply, numbered, out); });
    if (status != 0 && status != 5) {
        fail("the rule printer returned neither 0 nor 5");
    }
    if (status == 5 && !text.empty()) {
        fail("the rule printer wrote rules and failed");
    }
}

void consume(const json::object& reply, std::time_t now) {
    std::FILE* out = halvo::fuzz::nullStream();
    halvo::listings::outputDeviceList(reply, out);
    halvo::listings::outputConnectionList(reply, out);
    printRules(reply, 0);
    printRules(reply, 1);
    halvo::cli::printEvent(halvo::cli::deviceEventCode, reply, out, now);
    halvo::cli::printEvent(halvo::cli::hostEventCode, reply, out, now);
    static_cast<void>(halvo::cli::readStatus(reply));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (!text.empty() && text.front() == '{') {
        if (std::optional<json::object> reply = decodedReply(text)) {
            consume(*reply, 0);
        }
        return 0;
    }
    FuzzedDataProvider input(data, size);
    // Any moment, also ones local time cannot express.
    const auto now = input.ConsumeIntegral<std::time_t>();
    consume(halvo::fuzz::buildReply(input), now);
    return 0;
}
