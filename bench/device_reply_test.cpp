#include "bench/device_reply.h"
#include "link/packet.h"
#include "listings/device_list.h"
#include "tests/support/stream_capture.h"

#include <algorithm>
#include <boost/json/parse.hpp>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>

namespace halvo::bench {
namespace {

namespace json = boost::json;

// The table the utility prints for the payload: the benchmarks only mean
// something if every generated device makes a row.
std::string tableOf(const std::string& payload) {
    const json::object reply = json::parse(payload).as_object();
    return testkit::printedBy([&](std::FILE* out) { listings::outputDeviceList(reply, out); });
}

TEST(DeviceReply, EveryDeviceMakesARowOfTheTable) {
    const DeviceListPayload payload = deviceListPayload(20);
    EXPECT_EQ(payload.devices, 20u);
    const std::string table = tableOf(payload.json);
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 21);
    EXPECT_NE(table.find("@192.168."), std::string::npos) << "some rows carry an address";
    EXPECT_NE(table.find("built-in, "), std::string::npos) << "some devices are built in";
}

TEST(DeviceReply, FillsUpToTheLimitWithoutPassingIt) {
    const std::size_t limit = 64 * 1024;
    const DeviceListPayload payload = deviceListPayloadUpTo(limit);
    EXPECT_LE(payload.json.size(), limit);
    EXPECT_GT(payload.json.size(), limit - 200) << "no room left for one more device";
    EXPECT_EQ(json::parse(payload.json).at("devices").as_array().size(), payload.devices);
}

} // namespace
} // namespace halvo::bench
