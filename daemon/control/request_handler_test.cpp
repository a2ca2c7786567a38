#include "daemon/control/request_handler.h"
#include "daemon/core/rule_text.h"
#include "tests/support/daemon_graph.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>
#include <sstream>

namespace halvo::daemon {
namespace {

namespace json = boost::json;
using link::CommandCode;

constexpr ClientId kAlice = 1;
constexpr ClientId kBob = 2;
// A client that may look but not change (no local user, or not an admin).
constexpr ClientId kStranger = 3;

json::object payload(std::string_view text) {
    return json::parse(text).as_object();
}

json::array rulesOf(std::string_view text) {
    return *parseRuleText(text);
}

class RequestHandlerTest : public ::testing::Test, protected testkit::DaemonGraph {
  protected:
    RequestHandlerTest() : DaemonGraph(rulesOf("block hwid 046d\n"), Action::share) {}

    json::object ask(ClientId client, CommandCode command, std::string_view request = "{}") {
        const Caller caller{client, 1000, client != kStranger};
        Outcome outcome = handler.handle(caller, link::code(command), payload(request));
        lastEvents = std::move(outcome.events);
        return outcome.reply;
    }

    std::string statusOf(ClientId client, CommandCode command, std::string_view request = "{}") {
        json::object reply = ask(client, command, request);
        const json::value* status = reply.if_contains("status");
        return status != nullptr && status->is_string() ? std::string(status->get_string())
                                                        : "<no status>";
    }

    json::array rulesSeenBy(ClientId client) {
        json::object reply = ask(client, CommandCode::ruleList);
        EXPECT_FALSE(reply.contains("status")) << "the rule printer takes a status as a failure";
        return reply["rules"].as_array();
    }

    std::vector<Event> lastEvents;
};

// Transactions take no lock: each works on a snapshot, and a commit over a
// set that changed since the snapshot is refused with nothing changed.
TEST_F(RequestHandlerTest, TransactionsInEveryOrderCommitOnlyOverWhatTheyBeganOn) {
    struct Case {
        const char* steps; // "Ab" Alice begins, "Bc" Bob commits, ...
        const char* statuses;
        const char* committed;
    };
    const Case cases[] = {
        {"Ab Ac Bb Bc", "ok ok ok ok", "bob"},
        {"Ab Bb Ac Bc", "ok ok ok conflict", "alice"},
        {"Ab Bb Bc Ac", "ok ok ok conflict", "bob"},
        {"Ab Ab Bb Bc Ac", "ok ok ok ok conflict", "bob"},
    };
    const json::array original = rulesOf("block hwid 046d\n");
    for (const Case& c : cases) {
        std::istringstream steps(c.steps);
        std::string statuses;
        for (std::string step; steps >> step;) {
            const ClientId client = step[0] == 'A' ? kAlice : kBob;
            if (step[1] == 'b') {
                statuses += statusOf(client, CommandCode::startRuleTransaction);
                // Each loads its own set: one share rule naming who it is.
                json::object load;
                load["rules"] = rulesOf(std::string("share name is \"") +
                                        (client == kAlice ? "alice" : "bob") + "\"\n");
                EXPECT_EQ(statusOf(client, CommandCode::loadRuleList, json::serialize(load)), "ok");
            } else {
                std::string status =
                    statusOf(client, CommandCode::endRuleTransaction, R"({"action": "commit"})");
                statuses += status == kStatusConflict ? "conflict" : status;
            }
            statuses += " ";
        }
        statuses.pop_back();
        EXPECT_EQ(statuses, c.statuses) << c.steps;
        EXPECT_EQ(rulesSeenBy(kStranger),
                  rulesOf(std::string("share name is \"") + c.committed + "\"\n"))
            << c.steps;
        handler.clientLeft(kAlice);
        handler.clientLeft(kBob);
    }
}

TEST_F(RequestHandlerTest, OnlyThoseAllowedChangeWhatIsShared) {
    const std::pair<CommandCode, const char*> changes[] = {
        {CommandCode::disconnectDevice, R"({"id": 2})"},
        {CommandCode::killConnection, R"({"host": "10.0.0.5"})"},
        {CommandCode::killConnection, R"({"pid": 4242})"},
        {CommandCode::endRuleTransaction, R"({"action": "commit"})"},
    };
    // A stranger still works in a transaction of its own, and tests with it.
    ASSERT_EQ(statusOf(kStranger, CommandCode::startRuleTransaction), "ok");
    EXPECT_EQ(statusOf(kStranger, CommandCode::loadRuleList, R"({"rules": [{"action": "share"}]})"),
              "ok");
    EXPECT_EQ(statusOf(kStranger, CommandCode::testRule, R"({"id": 1, "type": "rdesk"})"), "ok");
    for (const auto& [command, request] : changes) {
        EXPECT_EQ(statusOf(kStranger, command, request), kStatusPermissionDenied) << request;
        EXPECT_TRUE(lastEvents.empty()) << request;
    }
    EXPECT_EQ(rulesSeenBy(kAlice), rulesOf("block hwid 046d\n"));
    EXPECT_EQ(ask(kStranger, CommandCode::connectionList)["connections"].as_array().size(), 3u);
    EXPECT_EQ(statusOf(kAlice, CommandCode::disconnectDevice, R"({"id": 2})"), "ok");
}

TEST_F(RequestHandlerTest, RuleListsThatWouldNotFitOnePacketAreRefused) {
    // 99 rules that leave 20 bytes of the packet free: one more, or one
    // more device rule, would not fit.
    const auto named = [](std::size_t length) {
        return rulesOf("share name is \"" + std::string(length, 'n') + "\"\n")[0];
    };
    json::array big(99, named(link::kMaxPayloadSize / 100));
    const std::size_t listSize =
        json::serialize(big).size() + std::string_view(R"({"rules":})").size();
    big[0] = named(link::kMaxPayloadSize / 100 + link::kMaxPayloadSize - 20 - listSize);
    big.push_back(big[1]);
    json::object load;
    load["rules"] = big;
    ASSERT_EQ(statusOf(kAlice, CommandCode::startRuleTransaction), "ok");
    EXPECT_TRUE(statusOf(kAlice, CommandCode::loadRuleList, json::serialize(load))
                    .starts_with("refused: the rule list would take "));
    big.pop_back();
    load["rules"] = big;
    EXPECT_EQ(statusOf(kAlice, CommandCode::loadRuleList, json::serialize(load)), "ok");
    EXPECT_TRUE(
        statusOf(kAlice, CommandCode::insertRuleForDevice, R"({"id": 1, "action": "share"})")
            .starts_with("refused: the rule list would take "));
    EXPECT_EQ(rulesSeenBy(kAlice), big);
}

TEST_F(RequestHandlerTest, RollbackAndDepartureEndTheTransaction) {
    ASSERT_EQ(statusOf(kAlice, CommandCode::startRuleTransaction), "ok");
    ASSERT_EQ(statusOf(kAlice, CommandCode::loadRuleList, R"({"rules": [{"action": "share"}]})"),
              "ok");
    EXPECT_EQ(statusOf(kAlice, CommandCode::endRuleTransaction, R"({"action": "rollback"})"), "ok");
    EXPECT_EQ(rulesSeenBy(kAlice), rulesOf("block hwid 046d\n"));
    ASSERT_EQ(statusOf(kBob, CommandCode::startRuleTransaction), "ok");
    handler.clientLeft(kBob);
    EXPECT_EQ(statusOf(kBob, CommandCode::endRuleTransaction, R"({"action": "commit"})"),
              kStatusNoTransaction);
}

TEST_F(RequestHandlerTest, InsertedRuleNamesExactlyThatDeviceAtTheTop) {
    ASSERT_EQ(statusOf(kAlice, CommandCode::startRuleTransaction), "ok");
    EXPECT_EQ(statusOf(kAlice, CommandCode::insertRuleForDevice, R"({"id": 2, "action": "share"})"),
              "ok");
    EXPECT_EQ(statusOf(kAlice, CommandCode::insertRuleForDevice, R"({"id": 1, "action": "block"})"),
              "ok");
    EXPECT_EQ(rulesSeenBy(kAlice),
              rulesOf("block quick hwid 046d:c31c:0110 port 1-1\n"
                      "share quick hwid 0781:5567:0100 serial \"S N\" port 1-2\n"
                      "block hwid 046d\n"));
}

TEST_F(RequestHandlerTest, VerdictComesFromTheClientsOwnRules) {
    const auto verdict = [&](ClientId client, const char* request) {
        return ask(client, CommandCode::testRule, request)["verdict"];
    };
    const char* const kNetHost = R"({"id": 2, "type": "net", "addr": "10.0.0.9"})";
    EXPECT_EQ(verdict(kBob, R"({"id": 1, "type": "rdesk"})"), "block (rule #1)");
    EXPECT_EQ(verdict(kBob, kNetHost), "share (default)");

    ASSERT_EQ(statusOf(kAlice, CommandCode::startRuleTransaction), "ok");
    ASSERT_EQ(statusOf(kAlice, CommandCode::loadRuleList,
                       R"({"rules": [{"action": "block", "host": ["10.0.0.9"]}]})"),
              "ok");
    EXPECT_EQ(verdict(kAlice, kNetHost), "block (rule #1)");
    EXPECT_EQ(verdict(kBob, kNetHost), "share (default)");
}

TEST_F(RequestHandlerTest, DropsAndUnplugsWithTheirEvents) {
    EXPECT_EQ(
        statusOf(kAlice, CommandCode::killConnection, R"({"host": "10.0.0.5", "port": 1001})"),
        "ok");
    ASSERT_EQ(lastEvents.size(), 1u);
    EXPECT_EQ(lastEvents[0].code, CommandCode::hostEvent);
    EXPECT_EQ(lastEvents[0].payload, payload(R"({"type": "net", "addr": "10.0.0.5", "port": 1001,
                                                  "state": "dropped"})"));

    EXPECT_EQ(statusOf(kAlice, CommandCode::killConnection, R"({"host": "10.0.0.5"})"), "ok");
    EXPECT_EQ(lastEvents.size(), 1u);
    EXPECT_EQ(statusOf(kAlice, CommandCode::killConnection, R"({"host": "10.0.0.5"})"), "notfound");
    EXPECT_TRUE(lastEvents.empty());

    EXPECT_EQ(statusOf(kAlice, CommandCode::killConnection, R"({"pid": 4242})"), "ok");
    ASSERT_EQ(lastEvents.size(), 1u);
    EXPECT_EQ(lastEvents[0].payload["state"], "killed");
    EXPECT_EQ(ask(kAlice, CommandCode::connectionList)["connections"], json::array());

    EXPECT_EQ(statusOf(kAlice, CommandCode::disconnectDevice, R"({"id": 2})"), "ok");
    ASSERT_EQ(lastEvents.size(), 1u);
    EXPECT_EQ(lastEvents[0].code, CommandCode::deviceEvent);
    EXPECT_EQ(lastEvents[0].payload,
              payload(R"({"id": 2, "name": "Stick", "state": "unplugged", "addr": "10.0.0.5"})"));
    json::object stick = ask(kAlice, CommandCode::deviceList)["devices"].as_array()[1].as_object();
    EXPECT_EQ(stick["state"], "available");
    EXPECT_FALSE(stick.contains("addr"));
}

// Alice has a transaction open, Bob has none.
TEST_F(RequestHandlerTest, FaultyRequestsGetTheirStatusAndChangeNothing) {
    struct Case {
        ClientId client;
        std::uint32_t command;
        const char* request;
        std::string_view status;
    };
    const std::uint32_t insert = link::code(CommandCode::insertRuleForDevice);
    const std::uint32_t load = link::code(CommandCode::loadRuleList);
    const std::uint32_t test = link::code(CommandCode::testRule);
    const std::uint32_t kill = link::code(CommandCode::killConnection);
    const std::uint32_t unplug = link::code(CommandCode::disconnectDevice);
    const std::string_view kBadId = "bad request: \"id\" must be an integer from 0 to 4294967295";
    const Case cases[] = {
        {kAlice, insert, R"({"id": 9, "action": "share"})", kStatusNotFound},
        {kAlice, insert, R"({"id": 1, "action": "allow"})",
         "bad request: \"action\" must be \"share\" or \"block\""},
        {kBob, insert, R"({"id": 1, "action": "share"})", kStatusNoTransaction},
        {kAlice, load, R"({"rules": [{"action": "share"}, {"action": "block", "rev": 1}]})",
         "invalid rule #2: \"rev\" without \"pid\""},
        {kAlice, load, R"({"rules": {}})", "bad request: \"rules\" must be an array"},
        {kBob, test, R"({"id": 5, "type": "rdesk"})", kStatusNotFound},
        {kBob, test, R"({"id": 1, "type": "net"})",
         "bad request: \"addr\" (a string) is required for a network connection"},
        {kBob, test, R"({"id": 1, "type": "Net", "addr": "h"})",
         "bad request: \"type\" must be \"net\" or \"rdesk\""},
        {kBob, test, R"({"id": -1, "type": "rdesk"})", kBadId},
        {kAlice, kill, R"({"pid": 4243})", kStatusNotFound},
        {kAlice, kill, R"({"port": 1})", "bad request: \"host\" (a string) or \"pid\" is required"},
        {kAlice, unplug, R"({"id": 3})", kStatusNotFound},
        {kAlice, unplug, "{}", kBadId},
        {kAlice, 4, "{}", kStatusUnknownCommand},
        {kAlice, 0xffffffffu, "{}", kStatusUnknownCommand},
    };
    ASSERT_EQ(statusOf(kAlice, CommandCode::startRuleTransaction), "ok");
    for (const Case& c : cases) {
        Outcome outcome =
            handler.handle(Caller{c.client, 1000, true}, c.command, payload(c.request));
        EXPECT_EQ(outcome.reply["status"], json::value(c.status)) << c.request;
        EXPECT_TRUE(outcome.events.empty()) << c.request;
    }
    EXPECT_EQ(rulesSeenBy(kAlice), rulesOf("block hwid 046d\n"));
    EXPECT_EQ(ask(kAlice, CommandCode::connectionList)["connections"].as_array().size(), 3u);
}

} // namespace
} // namespace halvo::daemon
