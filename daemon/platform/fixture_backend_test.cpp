#include "daemon/core/connection_table.h"
#include "daemon/platform/fixture_backend.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

namespace json = boost::json;

template <class Parse>
void expectFaults(Parse parse, std::initializer_list<std::pair<const char*, const char*>> cases) {
    for (const auto& [fixture, fault] : cases) {
        auto parsed = parse(json::parse(fixture).as_object());
        ASSERT_FALSE(parsed.has_value()) << fixture;
        EXPECT_EQ(parsed.error(), fault) << fixture;
    }
}

TEST(FixtureBackendTest, FaultsNameTheDeviceOrConnectionAndTheKey) {
    expectFaults(
        parseDeviceFixture,
        {
            {R"({})", R"("devices" must be an array)"},
            {R"({"devices": [1]})", "device #1: not an object"},
            {R"({"devices": [{"vid": 1, "pid": 2, "rev": 3, "port": "1", "name": "a"}, {"pid": 2}]})",
             R"(device #2: "vid" is missing)"},
            {R"({"devices": [{"vid": 65536, "pid": 2, "rev": 3, "port": "1", "name": "a"}]})",
             R"(device #1: "vid" must be an integer from 0 to 65535)"},
            {R"({"devices": [{"vid": 1, "pid": 2, "rev": 3, "port": "1", "name": "a", "class": 256}]})",
             R"(device #1: "class" must be an integer from 0 to 255)"},
            {R"({"devices": [{"vid": 1, "pid": 2, "rev": 3, "port": 1, "name": "a"}]})",
             R"(device #1: "port" must be a string)"},
            {R"({"devices": [{"vid": 1, "pid": 2, "rev": 3, "port": "1", "name": "a", "built-in": 1}]})",
             R"(device #1: "built-in" must be true or false)"},
            {R"({"devices": [{"id": 4, "vid": 1, "pid": 2, "rev": 3, "port": "1", "name": "a"}]})",
             R"(device #1: unknown key "id")"},
        });
    expectFaults(parseConnectionFixture,
                 {
                     {R"({"connections": [{"type": "net", "addr": "a"}]})",
                      R"(connection #1: "port" must be an integer from 0 to 65535)"},
                     {R"({"connections": [{"type": "rdesk", "pid": 1}]})",
                      R"(connection #1: "app" must be a string)"},
                     {R"({"connections": [{"type": "usb"}]})",
                      R"(connection #1: "type" must be "net" or "rdesk")"},
                 });
}

} // namespace
} // namespace halvo::daemon
