#include "fuzz/reply_builder.h"

#include <boost/json/array.hpp>
#include <boost/json/value.hpp>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

namespace halvo::fuzz {

namespace json = boost::json;

namespace {

// Every key a reply consumer looks at: statuses, listings, events, rules;
// then texts the consumers compare against, and a few that print badly.
// clang-format off
constexpr const char* kKnownKeys[] = {
    "status", "verdict", "devices", "connections", "rules", "id", "vid", "pid", "rev", "port",
    "built-in", "name", "state", "addr", "serial", "type", "app", "action", "quick", "host",
    "notHost", "rdesk", "nameMatch", "notName", "notHWID", "notSerial", "notPort", "class",
    "subclass", "protocol", "notClass", "override-name", "override-serial", "takeaway"};
constexpr const char* kKnownTexts[] = {
    "ok", "notfound", "OK", "net", "rdesk", "Net", "share", "block", "is", "contains", "",
    "%s%n%x", "0123456789abcdef", "a\tb\nc", "\xff\xfe"};
// clang-format on

constexpr int kMaxDepth = 6;
constexpr std::size_t kMaxMembers = 12;

template <std::size_t N>
const char* pick(FuzzedDataProvider& input, const char* const (&table)[N]) {
    return table[input.ConsumeIntegralInRange<std::size_t>(0, N - 1)];
}

std::string buildKey(FuzzedDataProvider& input) {
    return input.ConsumeIntegralInRange<int>(0, 7) == 0 ? input.ConsumeRandomLengthString(16)
                                                        : pick(input, kKnownKeys);
}

// Numbers at the edges the consumers convert: 32 and 64 bits, signs,
// fractions, and values no reply can hold but a careless reader might meet.
json::value buildNumber(FuzzedDataProvider& input) {
    switch (input.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
        return input.ConsumeIntegral<std::int64_t>();
    case 1:
        return input.ConsumeIntegral<std::uint64_t>();
    case 2:
        return input.ConsumeIntegralInRange<std::int64_t>(-2, 2);
    case 3:
        return static_cast<std::int64_t>(input.ConsumeIntegral<std::uint32_t>()) +
               input.ConsumeIntegralInRange<std::int64_t>(-1, 1) * (std::int64_t{1} << 32);
    case 4:
        return input.ConsumeFloatingPoint<double>();
    case 5:
        return input.ConsumeProbability<double>() * 1e20 - 5e19;
    case 6:
        return input.ConsumeBool() ? std::numeric_limits<double>::infinity()
                                   : std::numeric_limits<double>::quiet_NaN();
    default:
        return input.ConsumeIntegral<std::uint16_t>() + 0.5;
    }
}

json::value buildValue(FuzzedDataProvider& input, int depth);

json::array buildArray(FuzzedDataProvider& input, int depth) {
    json::array array;
    const std::size_t count = input.ConsumeIntegralInRange<std::size_t>(0, kMaxMembers);
    for (std::size_t i = 0; i < count && input.remaining_bytes() > 0; ++i) {
        array.emplace_back(buildValue(input, depth + 1));
    }
    return array;
}

json::object buildObject(FuzzedDataProvider& input, int depth) {
    json::object object;
    const std::size_t count = input.ConsumeIntegralInRange<std::size_t>(0, kMaxMembers);
    for (std::size_t i = 0; i < count && input.remaining_bytes() > 0; ++i) {
        object[buildKey(input)] = buildValue(input, depth + 1);
    }
    return object;
}

json::value buildValue(FuzzedDataProvider& input, int depth) {
    // Objects come up most: the lists are arrays of them.
    const int deepest = depth >= kMaxDepth ? 4 : 9;
    switch (input.ConsumeIntegralInRange<int>(0, deepest)) {
    case 0:
        return nullptr;
    case 1:
        return input.ConsumeBool();
    case 2:
        return buildNumber(input);
    case 3:
        return json::string(pick(input, kKnownTexts));
    case 4:
        return json::string(input.ConsumeRandomLengthString(64));
    case 5:
        return buildArray(input, depth);
    default:
        return buildObject(input, depth);
    }
}

} // namespace

json::object buildReply(FuzzedDataProvider& input) {
    return buildObject(input, 0);
}

} // namespace halvo::fuzz
