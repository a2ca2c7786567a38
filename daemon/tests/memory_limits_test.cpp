// What a client can make halvod hold is bounded: payloads by the bytes that
// arrived, parses by their limit whatever the JSON's shape, rule transactions
// by their count per user and their memory; the administrator stays served.
#include "daemon/core/rule_store.h"
#include "link/bounded_memory.h"
#include "tests/support/daemon_harness.h"
#include "tests/support/scripted_daemon.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

namespace json = boost::json;
using link::CommandCode;
using testkit::DaemonProcess;
using testkit::TestClient;

std::string numericArray(std::size_t count) {
    std::string text = R"({"a":[1)";
    for (std::size_t index = 1; index < count; ++index) {
        text += ",1";
    }
    return text + "]}";
}

// The parser's stack of unfinished values is as large as the array it builds:
// both count, so a limit of twice the array's own size is needed and enough.
TEST(MemoryLimitsTest, AParseTakesAllItsMemoryFromItsBound) {
    constexpr std::size_t kNumbers = 100'000;
    const std::string text = numericArray(kNumbers);
    const std::size_t array = kNumbers * sizeof(json::value);

    link::BoundedStorage ample = link::makeBoundedStorage(4 * array + 64 * 1024);
    link::DecodedPayload parsed = link::decodePayload(text, ample.storage);
    ASSERT_TRUE(std::holds_alternative<json::object>(parsed));
    EXPECT_GE(ample.memory->peak, 2 * array);
    ample.storage = {};
    // The object keeps its memory: still readable once the caller let go.
    EXPECT_EQ(std::get<json::object>(parsed).at("a").as_array().size(), kNumbers);

    link::BoundedStorage tight = link::makeBoundedStorage(array + array / 2);
    parsed = link::decodePayload(text, tight.storage);
    ASSERT_TRUE(std::holds_alternative<link::PayloadError>(parsed));
    EXPECT_EQ(std::get<link::PayloadError>(parsed).description, "too large to parse");
    EXPECT_LE(tight.memory->peak, tight.memory->limit);
}

TEST(MemoryLimitsTest, TransactionsAreCountedAndCappedWithRoomKeptForAdministrators) {
    const json::array set = json::parse(R"([{"action":"share","name":")" + std::string(2000, 'n') +
                                        R"(","nameMatch":"is"}])")
                                .as_array();
    const TransactionOwner user{1000, false};
    const TransactionOwner root{0, true};
    RuleStore store(set, nullptr, {64 * 1024, 2});
    // A begin shares the committed set: it costs nothing.
    EXPECT_TRUE(store.begin(1, user));
    EXPECT_TRUE(store.begin(2, user));
    EXPECT_FALSE(store.begin(3, user)) << "a third of the same user";
    EXPECT_TRUE(store.begin(3, {1001, false}));
    EXPECT_TRUE(store.begin(4, root));
    EXPECT_TRUE(store.begin(5, root));
    EXPECT_TRUE(store.begin(6, root)) << "no count for administrators";
    EXPECT_EQ(store.transactionBytes(), 0u);

    // Users fill three quarters, then are refused; an administrator gets the rest.
    std::size_t loads = 0;
    for (ClientId client = 1; client <= 3; ++client) {
        while (loads < 1000 && store.insertFirst(client, set[0].as_object())) {
            ++loads;
        }
    }
    EXPECT_GT(loads, 4u);
    EXPECT_LE(store.transactionBytes(), 48u * 1024);
    EXPECT_FALSE(store.insertFirst(1, set[0].as_object()));
    EXPECT_TRUE(store.insertFirst(4, set[0].as_object()));
    EXPECT_LE(store.transactionBytes(), 64u * 1024);

    // Ended transactions give their memory back.
    for (ClientId client = 1; client <= 6; ++client) {
        store.rollback(client);
    }
    EXPECT_EQ(store.transactionBytes(), 0u);
    EXPECT_GE(store.takeFreedBytes(), 48u * 1024);
}

// Headers that announce 128 MiB and never send it hold nothing: root's
// requests with payloads are answered at once, and the stalled clients are
// dropped when their time is up. A load the rule text cannot keep is logged
// with its sender, and the rule parser prints nothing.
TEST(MemoryLimitsTest, StalledPayloadsHoldNothingAndEndInTime) {
    auto daemon = DaemonProcess::start({"--devices", std::string(HALVOD_DEMO_DIR) + "/devices.json",
                                        "--payload-timeout-seconds", "2"});
    ASSERT_TRUE(daemon);
    TestClient first(daemon->port());
    TestClient second(daemon->port());
    ASSERT_TRUE(first.sendRaw(testkit::headerBytes(link::code(CommandCode::testRule), 100 << 20)));
    ASSERT_TRUE(second.sendRaw(testkit::headerBytes(link::code(CommandCode::testRule), 28 << 20)));

    TestClient root(daemon->port());
    auto verdict = root.request(CommandCode::testRule,
                                json::parse(R"({"id": 1, "type": "rdesk"})").as_object());
    ASSERT_TRUE(verdict);
    EXPECT_EQ((*verdict)["status"], "ok");
    EXPECT_EQ((*root.request(CommandCode::startRuleTransaction))["status"], "ok");
    auto refused = root.request(
        CommandCode::loadRuleList,
        json::parse(R"({"rules":[{"action":"share"},{"action":"share","port":"1 2"}]})")
            .as_object());
    ASSERT_TRUE(refused);
    EXPECT_EQ((*refused)["status"],
              "invalid rule #2: it does not read back unchanged from rule text");

    // A set large enough to be parsed, checked, tested and listed off the loop.
    json::array many;
    for (int index = 0; index < 600; ++index) {
        many.push_back(json::parse(R"({"action":"share","name":")" + std::string(150, 'n') +
                                   R"(","nameMatch":"is"})"));
    }
    json::object load;
    load["rules"] = many;
    EXPECT_EQ((*root.request(CommandCode::loadRuleList, load))["status"], "ok");
    EXPECT_EQ((*root.request(CommandCode::testRule,
                             json::parse(R"({"id": 1, "type": "rdesk"})").as_object()))["verdict"],
              "block (default)");
    EXPECT_EQ((*root.request(CommandCode::ruleList))["rules"], many);

    EXPECT_TRUE(first.closedByPeer(std::chrono::seconds(10)));
    EXPECT_TRUE(second.closedByPeer(std::chrono::seconds(10)));
    const std::string log = daemon->errorOutput();
    EXPECT_NE(log.find("client dropped: payload not received in time"), std::string::npos) << log;
    EXPECT_NE(log.find("rule load refused: invalid rule #2"), std::string::npos) << log;
    EXPECT_NE(log.find("HALVO_DETAIL=Parsing error at rule #1"), std::string::npos) << log;
    EXPECT_EQ(log.find("\nParsing error"), std::string::npos) << log;
}

} // namespace
} // namespace halvo::daemon
