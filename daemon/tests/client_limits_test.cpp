// halvod under clients that take more than their share: each bound refuses or
// drops the one client, logs why, and leaves the others served.
#include "tests/support/daemon_harness.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>
#include <thread>

namespace halvo::daemon {
namespace {

namespace json = boost::json;
using link::CommandCode;
using testkit::DaemonProcess;
using testkit::TempDir;
using testkit::TestClient;

const std::string kDevices = std::string(HALVOD_DEMO_DIR) + "/devices.json";

bool served(TestClient& client) {
    auto reply = client.request(CommandCode::deviceList);
    return reply && reply->contains("devices");
}

TEST(ClientLimitsTest, CrowdsAreRefusedWithAReasonAndIdleClientsMakeRoom) {
    auto daemon = DaemonProcess::start({"--devices", kDevices, "--max-clients", "3",
                                        "--max-clients-per-user", "2", "--idle-seconds", "1"});
    ASSERT_TRUE(daemon);
    TestClient first(daemon->port());
    TestClient second(daemon->port());
    ASSERT_TRUE(served(first) && served(second));
    TestClient third(daemon->port());
    auto refusal = third.request(CommandCode::deviceList);
    ASSERT_TRUE(refusal);
    EXPECT_EQ((*refusal)["status"], "busy: too many clients of this user (2)");
    EXPECT_TRUE(third.closedByPeer());

    // Once idle long enough, the client heard from least recently makes room.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    ASSERT_TRUE(served(second));
    TestClient fourth(daemon->port());
    EXPECT_TRUE(served(fourth));
    EXPECT_TRUE(first.closedByPeer());
    EXPECT_TRUE(served(second));

    const std::string log = daemon->errorOutput();
    EXPECT_NE(log.find("client refused: busy: too many clients of this user (2) HALVO_UID="),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("client dropped: idle while the client table is full"), std::string::npos)
        << log;
}

TEST(ClientLimitsTest, PayloadsAndUnreadOutputAreBounded) {
    TempDir scratch;
    // One device with a long name: each of its events takes 64 KiB.
    testkit::writeFile(scratch / "devices.json",
                       R"({"devices": [{"vid": 1, "pid": 2, "rev": 3, "port": "1-1", "name": ")" +
                           std::string(64 * 1024, 'n') + R"("}]})");
    auto daemon = DaemonProcess::start({"--devices", (scratch / "devices.json").string(),
                                        "--max-parse-mib", "1", "--max-unread-mib", "1"});
    ASSERT_TRUE(daemon);
    TestClient bystander(daemon->port());

    // 300 KiB of numbers parse into some MiB: refused, that client only.
    TestClient parser(daemon->port());
    std::string numbers = R"({"a": [1)";
    for (int i = 0; i < 150 * 1024; ++i) {
        numbers += ",1";
    }
    numbers += "]}";
    ASSERT_TRUE(parser.sendRaw(
        link::encodePacket(link::code(CommandCode::deviceList), std::string_view(numbers))));
    EXPECT_TRUE(parser.closedByPeer());
    EXPECT_TRUE(served(bystander));

    // A client that never reads while events pile up is dropped.
    TestClient sleeper(daemon->port());
    ASSERT_TRUE(served(sleeper));
    json::object unplug = json::parse(R"({"id": 1})").as_object();
    for (int i = 0; i < 200 && !sleeper.closedByPeer(std::chrono::milliseconds(0)); ++i) {
        ASSERT_TRUE(bystander.request(CommandCode::disconnectDevice, unplug));
        bystander.events.clear();
    }
    EXPECT_TRUE(sleeper.closedByPeer());
    EXPECT_TRUE(served(bystander));

    const std::string log = daemon->errorOutput();
    EXPECT_NE(log.find("client dropped: payload too large to parse"), std::string::npos) << log;
    EXPECT_NE(log.find("client dropped: too much unread output"), std::string::npos) << log;
}

} // namespace
} // namespace halvo::daemon
