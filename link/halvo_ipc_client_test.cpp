#include "link/halvo_ipc_client.h"
#include "link/packet.h"
#include "tests/support/capturing_logger.h"
#include "tests/support/e2e.h"
#include "tests/support/scripted_daemon.h"

#include <boost/asio/io_context.hpp>
#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

namespace halvo::link {
namespace {

namespace json = boost::json;
using testkit::headerBytes;
using testkit::PeerConnection;
using testkit::ReceivedPacket;
using testkit::ScriptedDaemon;

// The receive state machine, fed pieces as the transport would deliver them.
class ReceiveStateMachineTest : public ::testing::Test {
  protected:
    void SetUp() override {
        client = QVHalvoIPCClient::initWithLogger(logger, "127.0.0.1", 9);
        ASSERT_TRUE(client);
        client->setOnData([this](std::uint32_t code, const json::object& payload) {
            delivered.emplace_back(code, json::serialize(payload));
        });
    }

    std::uint32_t nextSize() const {
        auto size = client->nextPacketSize();
        EXPECT_EQ(size.min, size.max);
        return size.min;
    }

    std::string lastLog() const { return logger->entries().back().message; }

    std::string address() const {
        char text[32];
        std::snprintf(text, sizeof text, "<%p>: ", static_cast<void*>(client.get()));
        return text;
    }

    std::shared_ptr<testkit::CapturingLogger> logger = std::make_shared<testkit::CapturingLogger>();
    std::shared_ptr<QVHalvoIPCClient> client;
    std::vector<std::pair<std::uint32_t, std::string>> delivered;
};

TEST_F(ReceiveStateMachineTest, AsksForAHeaderThenExactlyThePayload) {
    EXPECT_EQ(nextSize(), 8u);
    ASSERT_TRUE(client->parseProtocolPacket(headerBytes(7, 2)));
    EXPECT_EQ(nextSize(), 2u);
    ASSERT_TRUE(client->parseProtocolPacket("{}"));
    EXPECT_EQ(nextSize(), 8u);
    EXPECT_EQ(delivered, (decltype(delivered){{7, "{}"}}));
}

struct SizeCase {
    std::uint32_t size;
    bool valid;
};

TEST_F(ReceiveStateMachineTest, PayloadSizeMustBeOneTo100MiB) {
    const SizeCase cases[] = {
        {0, false}, {1, true}, {104857600, true}, {104857601, false}, {0xFFFFFFFF, false}};
    for (const SizeCase& c : cases) {
        SetUp();
        EXPECT_EQ(client->parseProtocolPacket(headerBytes(0, c.size)), c.valid) << c.size;
        if (c.valid) {
            EXPECT_EQ(nextSize(), c.size);
        } else {
            EXPECT_EQ(lastLog(),
                      address() + "Invalid data size=" + std::to_string(c.size) + " in IPC packet");
        }
    }
}

TEST_F(ReceiveStateMachineTest, PayloadMustBeAJsonObject) {
    struct Case {
        std::string payload;
        std::string logged; // after the address prefix
    } cases[] = {
        // clang-format off
        {"[1,2]", "cannot parse JSON, got wrong top-level object"},
        {"42", "cannot parse JSON, JSON text did not start with array or object"},
        {"{\"a\":", "cannot parse JSON, "}, {"{\"a\":\"\xff\"}", "cannot parse JSON, "},
        {std::string(600, '[') + std::string(600, ']'), "cannot parse JSON, "},
        // clang-format on
    };
    for (const Case& c : cases) {
        SetUp();
        ASSERT_TRUE(client->parseProtocolPacket(
            headerBytes(1, static_cast<std::uint32_t>(c.payload.size()))));
        EXPECT_FALSE(client->parseProtocolPacket(c.payload)) << c.payload.substr(0, 20);
        EXPECT_EQ(lastLog().rfind(address() + c.logged, 0), 0u) << lastLog();
        EXPECT_TRUE(delivered.empty());
    }
}

// The client against a peer over real TCP, on a port of its own.
class ClientOverTcpTest : public ::testing::Test {
  protected:
    // Runs the client's loop until a callback stops it; what it wrote on stderr.
    std::string runClient(std::uint16_t port,
                          std::function<void(QVHalvoIPCClient&)> onConnected = nullptr) {
        client = QVHalvoIPCClient::initWithLogger(logger, "127.0.0.1", port);
        if (!client) {
            return "(no client)";
        }
        std::weak_ptr<QVHalvoIPCClient> weak = client;
        client->setOnConnected([weak, onConnected] {
            if (auto strong = weak.lock(); strong && onConnected) {
                onConnected(*strong);
            }
        });
        client->setOnData([this](std::uint32_t code, const json::object& payload) {
            delivered.emplace_back(code, json::serialize(payload));
        });
        client->setOnError([this] {
            errors++;
            client->eventLoop().stop();
        });
        testing::internal::CaptureStderr();
        client->start();
        client->runEventLoop();
        client->stop();
        return testing::internal::GetCapturedStderr();
    }

    std::shared_ptr<testkit::CapturingLogger> logger = std::make_shared<testkit::CapturingLogger>();
    std::shared_ptr<QVHalvoIPCClient> client;
    std::vector<std::pair<std::uint32_t, std::string>> delivered;
    int errors = 0;
};

TEST_F(ClientOverTcpTest, RequestsGoOutAsSpecifiedPayloads) {
    ScriptedDaemon daemon(0);
    daemon.onPacket([](const ReceivedPacket& packet, PeerConnection& peer) {
        if (packet.command == 11 && packet.payload.find("commit") != std::string::npos) {
            peer.close();
        }
    });
    daemon.start();
    const std::uint16_t port = 4464;
    json::array rules{json::object{{"action", "share"}}};
    const std::string err = runClient(daemon.port(), [&](QVHalvoIPCClient& c) {
        c.getDeviceList();
        c.getConnectionList();
        c.requestKillConnectionWith("h", &port);
        c.requestKillConnectionWith("h", nullptr);
        c.requestKillConnectionWithPID(4294967295u);
        c.requestDisconnectDevice(3);
        c.startRuleTransaction();
        c.getRuleList();
        EXPECT_TRUE(c.loadRuleList(&rules));
        EXPECT_TRUE(c.loadRuleList(nullptr));
        EXPECT_TRUE(c.insertRuleForDevice(3, "share"));
        EXPECT_TRUE(c.testRuleForDevice(3, "net", "10.0.0.7"));
        EXPECT_TRUE(c.testRuleForDevice(3, "Net", "10.0.0.7"));
        EXPECT_TRUE(c.testRuleForDevice(3, "rdesk", nullptr));
        EXPECT_FALSE(c.testRuleForDevice(3, "net", "\xff"));
        c.endRuleTransaction(false);
        c.endRuleTransaction(true);
    });
    daemon.join();
    EXPECT_EQ(err, "\nconnection stopped by peer\n");
    EXPECT_EQ(testkit::describe(daemon.received()),
              (std::vector<std::string>{
                  "0", "1", R"(2 {"host":"h","port":4464})", R"(2 {"host":"h"})",
                  R"(2 {"pid":4294967295})", R"(3 {"id":3})", "6", "7",
                  R"(8 {"rules":[{"action":"share"}]})", "8 {}", R"(9 {"id":3,"action":"share"})",
                  R"(10 {"id":3,"type":"net","addr":"10.0.0.7"})", R"(10 {"id":3,"type":"Net"})",
                  R"(10 {"id":3,"type":"rdesk"})", R"(11 {"action":"rollback"})",
                  R"(11 {"action":"commit"})"}));
}

TEST_F(ClientOverTcpTest, EveryEndOfTheLinkIsReportedOnce) {
    struct Case {
        std::function<void(PeerConnection&)> script;
        std::string reason;
    } cases[] = {
        // clang-format off
        {[](PeerConnection& peer) { peer.close(); }, "connection stopped by peer"},
        {[](PeerConnection& peer) { peer.sendRaw(headerBytes(0, 0)); }, "broken connection"},
        {[](PeerConnection& peer) { peer.sendRaw(headerBytes(0, 10) + "{}"); peer.close(); }, "broken connection"},
        {[](PeerConnection& peer) { peer.sendRaw(headerBytes(0, 10)); peer.close(); }, "connection stopped by peer"},
        {[](PeerConnection& peer) { peer.sendRaw(headerBytes(0, 10).substr(0, 5)); peer.close(); }, "broken connection"},
        // clang-format on
    };
    for (const Case& c : cases) {
        ScriptedDaemon daemon(0);
        daemon.onAccept(c.script);
        daemon.start();
        errors = 0;
        EXPECT_EQ(runClient(daemon.port()), "\n" + c.reason + "\n");
        daemon.join();
        EXPECT_EQ(errors, 1);
    }
}

} // namespace
} // namespace halvo::link
