// Every consumer of a daemon reply (tables, rule lists, monitor events, the
// status check) on arbitrary JSON objects: an input beginning with "{" is
// decoded as the client decodes a payload, any other drives buildReply.
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
#include <string>
#include <string_view>
#include <variant>

namespace {

namespace json = boost::json;
using halvo::fuzz::fail;

void printRules(const json::object& reply, std::uint32_t numbered) {
    int status = 0;
    const std::string text = halvo::testkit::printedBy(
        [&](std::FILE* out) { status = halvo::rules::outputRuleList(reply, numbered, out); });
    if (status != 0 && (status != 5 || !text.empty())) {
        fail("the rule printer returned neither 0 nor 5, or wrote rules and returned 5");
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
        halvo::link::DecodedPayload decoded = halvo::link::decodePayload(text);
        if (const auto* reply = std::get_if<json::object>(&decoded)) {
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
