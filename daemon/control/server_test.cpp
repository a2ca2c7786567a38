#include "daemon/control/server.h"
#include "tests/support/daemon_graph.h"
#include "tests/support/daemon_harness.h"
#include "tests/support/scripted_daemon.h"

#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/json/parse.hpp>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace halvo::daemon {
namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using link::CommandCode;
using testkit::headerBytes;
using testkit::TestClient;

// A server on an ephemeral loopback port, run on a thread of its own; the
// test talks to it through sockets only.
class ServerTest : public ::testing::Test, protected testkit::DaemonGraph {
  protected:
    ServerTest()
        : DaemonGraph({}, Action::block),
          server(io, handler, AccessPolicy(::geteuid(), std::nullopt)) {}

    void SetUp() override {
        ASSERT_TRUE(server.listen({asio::ip::address_v4::loopback(), 0}).has_value());
        port = server.localEndpoint().port();
        runner = std::thread([this] { io.run(); });
    }

    void TearDown() override {
        asio::post(io, [this] {
            server.stop();
            io.stop();
        });
        if (runner.joinable()) {
            runner.join();
        }
    }

    asio::io_context io;
    Server server;
    std::thread runner;
    std::uint16_t port = 0;
};

TEST_F(ServerTest, ServesManyClientsAtOnce) {
    constexpr int kClients = 32;
    constexpr int kRounds = 10;
    std::atomic<int> good{0};
    std::vector<std::thread> clients;
    for (int index = 0; index < kClients; ++index) {
        clients.emplace_back([&] {
            TestClient client(port);
            for (int round = 0; round < kRounds; ++round) {
                auto list = client.request(CommandCode::deviceList);
                auto verdict =
                    client.request(CommandCode::testRule,
                                   json::parse(R"({"id": 2, "type": "rdesk"})").as_object());
                if (list && (*list)["devices"].as_array().size() == 2 && verdict &&
                    (*verdict)["verdict"] == "block (default)") {
                    ++good;
                }
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(good, kClients * kRounds);
}

TEST_F(ServerTest, HostileClientIsDroppedWithoutDisturbingOthers) {
    TestClient bystander(port);
    ASSERT_EQ((*bystander.request(CommandCode::startRuleTransaction))["status"], "ok");

    const std::pair<const char*, std::string> kBadPackets[] = {
        {"payload above 100 MiB", headerBytes(0, link::kMaxPayloadSize + 1)},
        {"payload not JSON", headerBytes(0, 3) + "{x}"},
        {"payload a JSON array", headerBytes(0, 2) + "[]"},
        {"payload JSON with trailing bytes", headerBytes(0, 4) + "{} x"},
    };
    for (const auto& [what, bytes] : kBadPackets) {
        TestClient hostile(port);
        ASSERT_TRUE(hostile.sendRaw(bytes)) << what;
        EXPECT_TRUE(hostile.closedByPeer()) << what;
        auto reply = bystander.request(CommandCode::deviceList);
        ASSERT_TRUE(reply) << what;
        EXPECT_EQ((*reply)["devices"].as_array().size(), 2u) << what;
    }
    // Clients that give up halfway through a packet.
    for (std::string partial :
         {headerBytes(0, 8).substr(0, 5), headerBytes(0, link::kMaxPayloadSize) + "{\"a\""}) {
        TestClient quitter(port);
        ASSERT_TRUE(quitter.sendRaw(partial));
    }
    // The bystander still holds its transaction, and blocks nobody.
    TestClient latecomer(port);
    EXPECT_EQ((*latecomer.request(CommandCode::startRuleTransaction))["status"], "ok");
    EXPECT_EQ((*bystander.request(CommandCode::endRuleTransaction,
                                  json::parse(R"({"action":"rollback"})").as_object()))["status"],
              "ok");
}

TEST_F(ServerTest, PacketsMayArriveSplitOrBatched) {
    TestClient client(port);
    std::string list = link::encodePacket(link::code(CommandCode::deviceList));
    std::string test = link::encodePacket(link::code(CommandCode::testRule),
                                          json::parse(R"({"id": 1, "type": "rdesk"})").as_object());
    for (char byte : test) {
        ASSERT_TRUE(client.sendRaw(std::string_view(&byte, 1)));
    }
    ASSERT_TRUE(client.sendRaw(list + test));
    const CommandCode kExpected[] = {CommandCode::testRule, CommandCode::deviceList,
                                     CommandCode::testRule};
    for (CommandCode expected : kExpected) {
        auto packet = client.receive();
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet->command, link::code(expected));
    }
}

} // namespace
} // namespace halvo::daemon
