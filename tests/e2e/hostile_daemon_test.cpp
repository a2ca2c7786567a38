// A daemon that misbehaves: replies cut into pieces or run together, events
// where replies are due, huge and slow replies. (Broken framing and payloads
// are the link's unit tests; statuses that are not text, the command tables.)
#include "link/packet.h"
#include "tests/support/e2e.h"

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::testkit {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kMaxPayload = link::kMaxPayloadSize;
const std::string kDeviceHeader = "ID\tVID: PID: REV\tPort\tDevice name and status\n";

std::string packet(std::uint32_t command, std::string_view json) {
    return link::encodePacket(command, json);
}

// Runs `answer` once, on the first request the utility sends; later
// requests get no answer.
void answerFirstRequest(ScriptedDaemon& daemon, ScriptedDaemon::AcceptScript answer) {
    daemon.onPacket(
        [answer, answered = false](const ReceivedPacket&, PeerConnection& peer) mutable {
            if (!answered) {
                answered = true;
                answer(peer);
            }
        });
}

TEST(HostileDaemonTest, HugeReplySentSlowlyIsReadWhole) {
    // About 100 MiB in 1 MiB pieces, a pause after each: the reads span
    // many partial receives.
    const std::string device =
        R"({"id":1,"vid":1,"pid":2,"rev":3,"port":"p","built-in":false,"name":"n","state":"s","serial":""})";
    // Exactly the largest payload: {"devices":[DEVICE],"pad":"xx...x"}.
    const std::string head = R"({"devices":[)" + device + R"(],"pad":")";
    const std::string reply = head + std::string(kMaxPayload - head.size() - 2, 'x') + R"("})";
    ASSERT_EQ(reply.size(), kMaxPayload);
    ScriptedDaemon daemon;
    answerFirstRequest(daemon, [&reply](PeerConnection& p) {
        p.sendInPieces(packet(0, reply), 1024 * 1024, 20ms);
    });
    RunOptions options;
    options.timeout = 40s; // seconds under a sanitizer or on a busy machine
    Exchange exchange = runAgainst(daemon, {"dev", "list"}, options);
    EXPECT_TRUE(finished(exchange.run, 0, kDeviceHeader + "1\t0001:0002:0003\tp\tn /s/\n", ""));
}

struct DeliveryCase {
    const char* name;
    std::vector<std::string> args;
    std::function<void(ScriptedDaemon&)> script;
    std::vector<std::string> sent;
    std::string out;
    std::string err;
    int status;
};

const std::string kOk = R"({"status":"ok"})";
const std::string kDeviceEvent = packet(4, R"({"id":9,"name":"ev","state":"on"})");
const std::string kHostEvent = packet(5, R"({"addr":"h","port":1,"state":"up"})");
const std::string kOneDevice =
    R"({"devices":[{"id":1,"vid":1,"pid":2,"rev":3,"port":"p","built-in":true,"name":"n","state":"s","serial":"x"}]})";
const std::string kOneDeviceRow = "1\t0001:0002:0003\tp\tn /built-in, s, x/\n";

// How replies reach the utility: split up, run together, behind events.
TEST(HostileDaemonTest, RepliesAreReadWhateverTheirSegmentsAndNeighbours) {
    // clang-format off
    const DeliveryCase cases[] = {
        {"events and replies to other requests, in 5-byte pieces, are no device list", {"dev", "list"},
         [](ScriptedDaemon& d) {
             answerFirstRequest(d, [](PeerConnection& p) { p.sendInPieces(kDeviceEvent + kHostEvent + packet(1, kOk) + packet(11, kOk) + packet(0, kOneDevice), 5, 100us); });
         },
         {"0"}, kDeviceHeader + kOneDeviceRow, "", 0},
        {"a reply and its successor in one segment, the second decides", {"conn", "kill", "7"},
         [](ScriptedDaemon& d) { answerFirstRequest(d, [](PeerConnection& p) { p.sendRaw(packet(1, kOk) + packet(2, R"({"status":"notfound"})")); }); },
         {R"(2 {"pid":7})"}, "", "Connection has not been found.\n", 2},
        {"events before each reply of a transaction", {"dev", "share", "3"},
         [](ScriptedDaemon& d) {
             d.onPacket([](const ReceivedPacket& r, PeerConnection& p) { p.sendRaw(kDeviceEvent + kHostEvent + packet(r.command, kOk)); });
         },
         {"6", R"(9 {"id":3,"action":"share"})", R"(11 {"action":"commit"})"}, "", "", 0},
        {"events and a foreign reply before each reply of the rule list", {"rule", "list"},
         [](ScriptedDaemon& d) {
             d.onPacket([](const ReceivedPacket& r, PeerConnection& p) { p.sendRaw(kDeviceEvent + packet(0, kOneDevice) + packet(r.command, r.command == 7 ? R"({"rules":[{"action":"share"}]})" : kOk)); });
         },
         {"6", "7"}, "1: share\n", "", 0},
        {"events while unplugging", {"dev", "unplug", "4"},
         [](ScriptedDaemon& d) { answerFirstRequest(d, [](PeerConnection& p) { p.sendRaw(kDeviceEvent + kHostEvent + packet(3, "{}")); }); },
         {R"(3 {"id":4})"}, "", "", 0},
        {"events and a device list before the connection list", {"conn", "list"},
         [](ScriptedDaemon& d) { answerFirstRequest(d, [](PeerConnection& p) { p.sendRaw(kHostEvent + packet(0, kOneDevice) + packet(1, R"({"connections":[]})")); }); },
         {"1"}, "Type\tIP/Name\t\tPort/PID\n", "", 0},
        {"rule test takes an event for a reply without status", {"rule", "test", "-r", "5"},
         [](ScriptedDaemon& d) { answerFirstRequest(d, [](PeerConnection& p) { p.sendRaw(kDeviceEvent + packet(6, kOk)); }); },
         {"6"}, "", "Internal error.\n", 5},
    };
    // clang-format on
    for (const DeliveryCase& c : cases) {
        ScriptedDaemon daemon;
        c.script(daemon);
        Exchange exchange = runAgainst(daemon, c.args);
        EXPECT_TRUE(finished(exchange.run, c.status, c.out, c.err)) << c.name;
        EXPECT_EQ(describe(exchange.sent), c.sent) << c.name;
    }
}

} // namespace
} // namespace halvo::testkit
