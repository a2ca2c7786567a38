// The rule text parser on arbitrary bytes, and the printer on whatever it
// accepts: printed rules must parse again to the same records, within the
// limits of the text form (a written value holding a double quote or a
// backslash, beginning with "!" or empty, or a port holding whitespace or
// "#", does not read back; the printer shows 8 bits of "class"; a false
// "takeaway" is printed as a blank).
#include "fuzz/fuzz_streams.h"
#include "rules/rule_parser.h"
#include "rules/rule_printer.h"
#include "tests/support/stream_capture.h"

#include <algorithm>
#include <boost/json/serialize.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

namespace json = boost::json;
using halvo::fuzz::fail;

bool readsBackAsWritten(std::string_view written) {
    return !written.empty() && written.front() != '!' &&
           written.find_first_of("\"\\") == std::string_view::npos;
}

std::string joinedHosts(const json::array& hosts) {
    std::string joined;
    for (const json::value& host : hosts) {
        if (!joined.empty()) {
            joined += ',';
        }
        joined += host.as_string().c_str();
    }
    return joined;
}

// Whether every value the printer writes for `record` comes back unchanged.
bool withinTextLimits(const json::object& record) {
    for (std::string_view key : {"name", "serial", "port", "override-name", "override-serial"}) {
        if (const json::value* value = record.if_contains(key)) {
            const std::string_view text = value->as_string();
            if (!readsBackAsWritten(text) ||
                (key == "port" && text.find_first_of(" \t\n\v\f\r#") != text.npos)) {
                return false;
            }
        }
    }
    if (const json::value* hosts = record.if_contains("host")) {
        if (!readsBackAsWritten(joinedHosts(hosts->as_array()))) {
            return false;
        }
    }
    return true;
}

// The record as it reads back from its printed line.
json::object asPrinted(json::object record) {
    if (json::value* deviceClass = record.if_contains("class")) {
        if (deviceClass->is_int64()) {
            *deviceClass = deviceClass->get_int64() & 0xff;
        } else {
            *deviceClass = deviceClass->as_uint64() & 0xff;
        }
    }
    if (const json::value* takeaway = record.if_contains("takeaway");
        takeaway != nullptr && !takeaway->as_bool()) {
        record.erase("takeaway");
    }
    return record;
}

std::string print(const json::array& records, std::uint32_t numbered) {
    const json::object reply{{"rules", records}};
    int status = 0;
    std::string text = halvo::testkit::printedBy(
        [&](std::FILE* out) { status = halvo::rules::outputRuleList(reply, numbered, out); });
    if (status != 0) {
        fail("the printer refused the parser's records", json::serialize(records));
    }
    return text;
}

void checkRoundTrip(const json::array& records, const std::string& text) {
    const std::optional<json::array> again = halvo::rules::rule_parser_run(text);
    if (!again) {
        fail("printed rules do not parse again", text);
    }
    if (again->size() != records.size()) {
        fail("printed rules parse to another number of records", text);
    }
    for (std::size_t i = 0; i < records.size(); ++i) {
        const json::object& record = records[i].as_object();
        if (asPrinted(record) != (*again)[i].as_object()) {
            fail("a printed rule reads back as another record",
                 json::serialize(record) + "\nprinted: " + text +
                     "\nread back: " + json::serialize((*again)[i]));
        }
    }
}

// A text that parses to records whose values lie outside the limits may
// print as lines that fail to parse; only the records within them are held
// to the round trip, and only when all of them are.
bool allWithinTextLimits(const json::array& records) {
    return std::all_of(records.begin(), records.end(), [](const json::value& record) {
        return withinTextLimits(record.as_object());
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::optional<json::array> records = halvo::rules::rule_parser_run(input);
    if (!records) {
        return 0;
    }
    print(*records, 1);
    const std::string printed = print(*records, 0);
    if (allWithinTextLimits(*records)) {
        checkRoundTrip(*records, printed);
    }
    return 0;
}
