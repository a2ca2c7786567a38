// A daemon that misbehaves: broken framing, payloads that are not JSON
// objects, keys of every wrong JSON type, replies cut into pieces or run
// together, events where replies are due, huge and slow replies, silence.
// Each run must end as the utility specifies, never by a crash.
#include "link/packet.h"
#include "tests/support/e2e.h"

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace halvo::testkit {
namespace {

using namespace std::chrono_literals;
using Answer = std::function<void(PeerConnection&)>;

constexpr std::uint32_t kMaxPayload = link::kMaxPayloadSize;
const std::string kBroken = "\nbroken connection\n";
const std::string kStoppedByPeer = "\nconnection stopped by peer\n";
const std::string kInternalError = "Internal error.\n";
const std::string kDeviceHeader = "ID\tVID: PID: REV\tPort\tDevice name and status\n";
const std::string kConnectionHeader = "Type\tIP/Name\t\tPort/PID\n";

// Huge replies take seconds under a sanitizer or on a busy machine.
RunOptions hugeReplyBound() {
    RunOptions options;
    options.timeout = 40s;
    return options;
}

std::string packet(std::uint32_t command, std::string_view json) {
    return link::encodePacket(command, json);
}

// Runs `answer` once, on the first request the utility sends; later
// requests get no answer.
void answerFirstRequest(ScriptedDaemon& daemon, Answer answer) {
    daemon.onPacket(
        [answer, answered = false](const ReceivedPacket&, PeerConnection& peer) mutable {
            if (!answered) {
                answered = true;
                answer(peer);
            }
        });
}

// Answers each request code with the packets scripted for it, sent as one
// write (so several packets share a segment).
void answerEach(ScriptedDaemon& daemon, std::vector<std::pair<std::uint32_t, std::string>> script) {
    daemon.onPacket([script](const ReceivedPacket& request, PeerConnection& peer) {
        for (const auto& [code, bytes] : script) {
            if (code == request.command) {
                peer.sendRaw(bytes);
            }
        }
    });
}

// A JSON object of exactly `size` bytes: {"devices":[],"pad":"xx...x"}.
std::string paddedDeviceList(std::size_t size) {
    const std::string head = R"({"devices":[],"pad":")";
    const std::string tail = R"("})";
    return head + std::string(size - head.size() - tail.size(), 'x') + tail;
}

std::string nested(std::string_view open, std::string_view close, std::size_t depth) {
    std::string text;
    text.reserve(depth * (open.size() + close.size()) + 16);
    for (std::size_t i = 0; i < depth; ++i) {
        text += open;
    }
    for (std::size_t i = 0; i < depth; ++i) {
        text += close;
    }
    return text;
}

struct LinkCase {
    const char* name;
    Answer answer;
    std::string err;
};

// `dev list` against a daemon whose answer ends the link.
TEST(HostileDaemonTest, BrokenFramingAndPayloadsEndTheLinkWithTheirReason) {
    // clang-format off
    const LinkCase cases[] = {
        {"size 0", [](PeerConnection& p) { p.sendHeader(0, 0); p.sendRaw("{}"); }, kBroken},
        {"size 1 cannot hold an object", [](PeerConnection& p) { p.sendHeader(0, 1); p.sendRaw("{"); }, kBroken},
        {"size one above the limit", [](PeerConnection& p) { p.sendHeader(0, kMaxPayload + 1); }, kBroken},
        {"size 0xffffffff", [](PeerConnection& p) { p.sendHeader(0, 0xffffffffu); }, kBroken},
        {"header cut short by a close", [](PeerConnection& p) { p.sendRaw(std::string("\0\0\0\0\x05", 5)); p.close(); }, kBroken},
        {"payload cut short by a close", [](PeerConnection& p) { p.sendHeader(0, 50); p.sendRaw(R"({"devices":[)"); p.close(); }, kBroken},
        {"close after a whole header", [](PeerConnection& p) { p.sendHeader(0, 20); p.close(); }, kStoppedByPeer},
        {"close instead of a reply", [](PeerConnection& p) { p.close(); }, kStoppedByPeer},
        {"invalid UTF-8", [](PeerConnection& p) { p.send(0, "{\"devices\":[],\"x\":\"\xff\"}"); }, kBroken},
        {"overlong UTF-8", [](PeerConnection& p) { p.send(0, "{\"devices\":[],\"x\":\"\xc0\xaf\"}"); }, kBroken},
        {"not JSON", [](PeerConnection& p) { p.send(0, "devices"); }, kBroken},
        {"a trailing NUL", [](PeerConnection& p) { p.send(0, std::string("{\"devices\":[]}\0", 15)); }, kBroken},
        {"two objects", [](PeerConnection& p) { p.send(0, "{}{}"); }, kBroken},
        {"a comment", [](PeerConnection& p) { p.send(0, "{/* c */}"); }, kBroken},
        {"an array", [](PeerConnection& p) { p.send(0, R"([{"devices":[]}])"); }, kBroken},
        {"a number", [](PeerConnection& p) { p.send(0, "42"); }, kBroken},
        {"a string", [](PeerConnection& p) { p.send(0, R"("devices")"); }, kBroken},
        {"true", [](PeerConnection& p) { p.send(0, "true"); }, kBroken},
        {"null", [](PeerConnection& p) { p.send(0, "null"); }, kBroken},
        {"arrays 100000 deep", [](PeerConnection& p) { p.send(0, "{\"devices\":" + nested("[", "]", 100000) + "}"); }, kBroken},
        {"objects 100000 deep", [](PeerConnection& p) { p.send(0, nested("{\"a\":", "}", 100000)); }, kBroken},
        {"an event, then a bad packet", [](PeerConnection& p) { p.send(4, R"({"id":1,"name":"n","state":"s"})"); p.send(0, "[]"); }, kBroken},
    };
    // clang-format on
    for (const LinkCase& c : cases) {
        ScriptedDaemon daemon;
        answerFirstRequest(daemon, c.answer);
        Exchange exchange = runAgainst(daemon, {"dev", "list"});
        EXPECT_EQ(exchange.run.status, 5) << c.name;
        EXPECT_EQ(exchange.run.err, c.err) << c.name;
        EXPECT_EQ(exchange.run.out, "") << c.name;
    }
}

TEST(HostileDaemonTest, PayloadOfExactlyTheLimitIsAccepted) {
    const std::string reply = paddedDeviceList(kMaxPayload);
    ASSERT_EQ(reply.size(), kMaxPayload);
    ScriptedDaemon daemon;
    answerFirstRequest(daemon, [&reply](PeerConnection& p) { p.send(0, reply); });
    Exchange exchange = runAgainst(daemon, {"dev", "list"}, hugeReplyBound());
    EXPECT_EQ(exchange.run.status, 0);
    EXPECT_EQ(exchange.run.err, "");
    EXPECT_EQ(exchange.run.out, kDeviceHeader);
}

TEST(HostileDaemonTest, HugeReplySentSlowlyIsReadWhole) {
    // About 100 MiB in 1 MiB pieces, a pause after each: the reads span
    // many partial receives.
    const std::string device =
        R"({"id":1,"vid":1,"pid":2,"rev":3,"port":"p","built-in":false,"name":"n","state":"s","serial":""})";
    std::string reply = paddedDeviceList(kMaxPayload - device.size());
    reply.insert(std::string(R"({"devices":[)").size(), device);
    ASSERT_EQ(reply.size(), kMaxPayload);
    ScriptedDaemon daemon;
    answerFirstRequest(daemon, [&reply](PeerConnection& p) {
        p.sendInPieces(packet(0, reply), 1024 * 1024, 20ms);
    });
    Exchange exchange = runAgainst(daemon, {"dev", "list"}, hugeReplyBound());
    EXPECT_EQ(exchange.run.status, 0);
    EXPECT_EQ(exchange.run.err, "");
    EXPECT_EQ(exchange.run.out, kDeviceHeader + "1\t0001:0002:0003\tp\tn /s/\n");
}

TEST(HostileDaemonTest, FiftyMebibyteStringsPassThrough) {
    const std::string name(50u * 1024 * 1024, 'n');
    const std::string pad(49u * 1024 * 1024, 'x');
    const std::string reply =
        R"({"devices":[{"id":1,"vid":1,"pid":2,"rev":3,"port":"p","built-in":false,"name":")" +
        name + R"(","state":"s","serial":""}],"pad":")" + pad + "\"}";
    ScriptedDaemon daemon;
    answerFirstRequest(daemon, [&reply](PeerConnection& p) { p.send(0, reply); });
    Exchange exchange = runAgainst(daemon, {"dev", "list"}, hugeReplyBound());
    EXPECT_EQ(exchange.run.status, 0);
    EXPECT_EQ(exchange.run.err, "");
    // Compared as a whole, not printed: a mismatch of 50 MiB helps no one.
    EXPECT_TRUE(exchange.run.out == kDeviceHeader + "1\t0001:0002:0003\tp\t" + name + " /s/\n")
        << "output of " << exchange.run.out.size() << " bytes";
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
        {"a reply byte by byte", {"dev", "list"},
         [](ScriptedDaemon& d) { answerFirstRequest(d, [](PeerConnection& p) { p.sendInPieces(packet(0, kOneDevice), 1, 100us); }); },
         {"0"}, kDeviceHeader + kOneDeviceRow, "", 0},
        {"a transaction byte by byte", {"dev", "share", "3"},
         [](ScriptedDaemon& d) {
             d.onPacket([](const ReceivedPacket& r, PeerConnection& p) { p.sendInPieces(packet(r.command, kOk), 1, 100us); });
         },
         {"6", R"(9 {"id":3,"action":"share"})", R"(11 {"action":"commit"})"}, "", "", 0},
        {"header and payload apart", {"dev", "list"},
         [](ScriptedDaemon& d) {
             answerFirstRequest(d, [](PeerConnection& p) {
                 const std::string bytes = packet(0, kOneDevice);
                 p.sendRaw(bytes.substr(0, 8));
                 std::this_thread::sleep_for(50ms);
                 p.sendRaw(bytes.substr(8));
             });
         },
         {"0"}, kDeviceHeader + kOneDeviceRow, "", 0},
        {"events and a reply in 5-byte pieces", {"dev", "list"},
         [](ScriptedDaemon& d) {
             answerFirstRequest(d, [](PeerConnection& p) { p.sendInPieces(kDeviceEvent + kHostEvent + packet(0, kOneDevice), 5, 100us); });
         },
         {"0"}, kDeviceHeader + kOneDeviceRow, "", 0},
        {"two replies in one segment", {"dev", "block", "3"},
         [](ScriptedDaemon& d) { answerEach(d, {{6, packet(6, kOk) + packet(9, kOk)}, {11, packet(11, kOk)}}); },
         {"6", R"(9 {"id":3,"action":"block"})", R"(11 {"action":"commit"})"}, "", "", 0},
        {"a reply and its successor in one segment, the second decides", {"conn", "kill", "7"},
         [](ScriptedDaemon& d) { answerFirstRequest(d, [](PeerConnection& p) { p.sendRaw(packet(1, kOk) + packet(2, R"({"status":"notfound"})")); }); },
         {R"(2 {"pid":7})"}, "", "Connection has not been found.\n", 2},
        {"events before each reply of a transaction", {"dev", "share", "3"},
         [](ScriptedDaemon& d) {
             d.onPacket([](const ReceivedPacket& r, PeerConnection& p) { p.sendRaw(kDeviceEvent + kHostEvent + packet(r.command, kOk)); });
         },
         {"6", R"(9 {"id":3,"action":"share"})", R"(11 {"action":"commit"})"}, "", "", 0},
        {"events and a foreign reply before the rule list", {"rule", "list"},
         [](ScriptedDaemon& d) {
             answerEach(d, {{6, kHostEvent + packet(6, kOk)},
                            {7, kDeviceEvent + packet(0, kOneDevice) + packet(7, R"({"rules":[{"action":"share"}]})")}});
         },
         {"6", "7"}, "1: share\n", "", 0},
        {"events while unplugging", {"dev", "unplug", "4"},
         [](ScriptedDaemon& d) { answerFirstRequest(d, [](PeerConnection& p) { p.sendRaw(kDeviceEvent + kHostEvent + packet(3, "{}")); }); },
         {R"(3 {"id":4})"}, "", "", 0},
        {"rule test takes an event for a reply without status", {"rule", "test", "-r", "5"},
         [](ScriptedDaemon& d) { answerFirstRequest(d, [](PeerConnection& p) { p.sendRaw(kDeviceEvent + packet(6, kOk)); }); },
         {"6"}, "", kInternalError, 5},
        {"rule test with an event between its replies", {"rule", "test", "-h", "10.0.0.1", "5"},
         [](ScriptedDaemon& d) { answerEach(d, {{6, packet(6, kOk)}, {10, kHostEvent + packet(10, R"({"status":"ok","verdict":"share"})")}}); },
         {"6", R"(10 {"id":5,"type":"net","addr":"10.0.0.1"})"}, "", kInternalError, 5},
    };
    // clang-format on
    for (const DeliveryCase& c : cases) {
        ScriptedDaemon daemon;
        c.script(daemon);
        Exchange exchange = runAgainst(daemon, c.args);
        EXPECT_EQ(exchange.run.status, c.status) << c.name;
        EXPECT_EQ(exchange.run.err, c.err) << c.name;
        EXPECT_EQ(exchange.run.out, c.out) << c.name;
        EXPECT_EQ(describe(exchange.sent), c.sent) << c.name;
    }
}

TEST(HostileDaemonTest, SilentDaemonLeavesTheUtilityWaiting) {
    const Answer answers[] = {
        [](PeerConnection&) {},
        // Replies to requests that were never made, and events.
        [](PeerConnection& p) {
            p.sendRaw(packet(1, kOk) + packet(11, kOk) + kDeviceEvent + kHostEvent);
        },
    };
    for (const Answer& answer : answers) {
        ScriptedDaemon daemon;
        answerFirstRequest(daemon, answer);
        RunOptions options;
        options.timeout = 1000ms;
        Exchange exchange = runAgainst(daemon, {"dev", "list"}, options);
        EXPECT_TRUE(exchange.run.timedOut);
        EXPECT_EQ(exchange.run.err, "");
        EXPECT_EQ(exchange.run.out, "");
    }
}

// A JSON object's members as written, so that a case can swap one value's
// text (keeping literals such as 18446744073709551616 as the daemon wrote
// them).
using Members = std::vector<std::pair<std::string, std::string>>;

std::string objectText(const Members& members) {
    std::string text = "{";
    for (const auto& [key, value] : members) {
        if (text.size() > 1) {
            text += ',';
        }
        text += '"' + key + "\":" + value;
    }
    return text + "}";
}

Members with(Members members, const std::string& key, const std::string& value) {
    for (auto& [name, text] : members) {
        if (name == key) {
            text = value;
            return members;
        }
    }
    members.emplace_back(key, value);
    return members;
}

// Values of every JSON type but number, and the non-string ones.
const char* const kNotNumbers[] = {"null", "true", "false", R"("3")", "[3]", R"({"v":3})"};
const char* const kNotStrings[] = {"null", "true", "5", "-1.5", R"(["s"])", R"({"s":"s"})"};

struct ValueCase {
    const char* key;
    const char* value;
    const char* shown; // the row, line or clause the value gives; nullptr: left out
};

struct DeviceCase {
    const char* key;
    const char* value;
    const char* columns;      // the row up to the port; nullptr: left out
    const char* status = "s"; // between the slashes
};

// One element of "devices" per case, each named after its position, so the
// table shows which elements printed and in which order.
TEST(HostileDaemonTest, DeviceListTakesEachValueAsItsTypeAllows) {
    // clang-format off
    std::vector<DeviceCase> cases = {
        {"id", "-1", "4294967295\t0001:0002:0003"},
        {"id", "4294967296", "0\t0001:0002:0003"},
        {"id", "4294967297", "1\t0001:0002:0003"},
        {"id", "18446744073709551615", "4294967295\t0001:0002:0003"},
        {"id", "18446744073709551616", "0\t0001:0002:0003"},
        {"id", "3.9", "3\t0001:0002:0003"},
        {"id", "-1.5", "4294967295\t0001:0002:0003"},
        {"id", "1e2", "100\t0001:0002:0003"},
        {"vid", "-1", "7\tffffffff:0002:0003"},
        {"vid", "65536", "7\t10000:0002:0003"},
        {"pid", "2.99", "7\t0001:0002:0003"},
        {"rev", "74565", "7\t0001:0002:12345"},
        {"built-in", "2", "7\t0001:0002:0003", "built-in, s"},
        {"built-in", "0.5", "7\t0001:0002:0003", "built-in, s"},
        {"built-in", "0", "7\t0001:0002:0003"},
        {"addr", R"("")", "7\t0001:0002:0003", "s@"},
        {"serial", R"("S")", "7\t0001:0002:0003", "s, S"},
    };
    // clang-format on
    for (const char* key : {"id", "vid", "pid", "rev"}) {
        for (const char* value : kNotNumbers) {
            cases.push_back({key, value, nullptr});
        }
    }
    for (const char* key : {"port", "name", "state", "addr", "serial"}) {
        for (const char* value : kNotStrings) {
            cases.push_back({key, value, nullptr});
        }
    }
    for (const char* value : {"null", R"("true")", "[true]", "{}"}) {
        cases.push_back({"built-in", value, nullptr});
    }
    const Members device = {{"id", "7"},         {"vid", "1"},       {"pid", "2"},
                            {"rev", "3"},        {"port", R"("p")"}, {"built-in", "false"},
                            {"state", R"("s")"}, {"serial", R"("")"}};
    std::string elements = R"(7,"text",null,[],true)"; // not objects: left out
    std::string expected = kDeviceHeader;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const DeviceCase& c = cases[i];
        const std::string name = "d" + std::to_string(i);
        const Members named = with(device, "name", '"' + name + '"');
        elements += "," + objectText(with(named, c.key, c.value));
        if (c.columns != nullptr) {
            expected += std::string(c.columns) + "\tp\t" + name + " /" + c.status + "/\n";
        }
    }
    ScriptedDaemon daemon;
    const std::string reply = R"({"devices":[)" + elements + "]}";
    answerFirstRequest(daemon, [&reply](PeerConnection& p) { p.send(0, reply); });
    Exchange exchange = runAgainst(daemon, {"dev", "list"});
    EXPECT_EQ(exchange.run.status, 0);
    EXPECT_EQ(exchange.run.err, "");
    EXPECT_EQ(exchange.run.out, expected) << reply;
}

TEST(HostileDaemonTest, ListsOfTheWrongTypePrintNothing) {
    struct ListCase {
        std::vector<std::string> args;
        std::uint32_t code;
        const char* key;
    };
    const ListCase lists[] = {{{"dev", "list"}, 0, "devices"},
                              {{"conn", "list"}, 1, "connections"}};
    for (const ListCase& list : lists) {
        for (const char* value : {"null", "true", "5", R"("[]")", "{}"}) {
            const std::string reply = std::string("{\"") + list.key + "\":" + value + "}";
            ScriptedDaemon daemon;
            answerFirstRequest(daemon, [&](PeerConnection& p) { p.send(list.code, reply); });
            Exchange exchange = runAgainst(daemon, list.args);
            EXPECT_EQ(exchange.run.status, 0) << reply;
            EXPECT_EQ(exchange.run.out, "") << reply;
            EXPECT_EQ(exchange.run.err, "") << reply;
        }
    }
}

TEST(HostileDaemonTest, ConnectionListTakesEachValueAsItsTypeAllows) {
    // clang-format off
    std::vector<ValueCase> cases = {
        {"port", "-1", "net\th\t\t65535"},
        {"port", "65537", "net\th\t\t1"},
        {"port", "4294967297", "net\th\t\t1"},
        {"port", "18446744073709551616", "net\th\t\t0"},
        {"port", "80.9", "net\th\t\t80"},
        {"type", R"("NET")", nullptr},
        {"type", R"("rdesk")", nullptr}, // an rdesk entry reads "app" and "pid", which it lacks
    };
    // clang-format on
    for (const char* value : kNotStrings) {
        cases.push_back({"type", value, nullptr});
        cases.push_back({"addr", value, nullptr});
    }
    for (const char* value : kNotNumbers) {
        cases.push_back({"port", value, nullptr});
    }
    const Members connection = {{"type", R"("net")"}, {"addr", R"("h")"}, {"port", "1"}};
    std::string elements = R"(7,"net",null,[],{"type":"rdesk","app":"a","pid":70000})";
    std::string expected = kConnectionHeader + "rdesk\ta\t\t4464\n";
    for (const ValueCase& c : cases) {
        elements += "," + objectText(with(connection, c.key, c.value));
        if (c.shown != nullptr) {
            expected += std::string(c.shown) + "\n";
        }
    }
    ScriptedDaemon daemon;
    const std::string reply = R"({"connections":[)" + elements + "]}";
    answerFirstRequest(daemon, [&reply](PeerConnection& p) { p.send(1, reply); });
    Exchange exchange = runAgainst(daemon, {"conn", "list"});
    EXPECT_EQ(exchange.run.status, 0);
    EXPECT_EQ(exchange.run.err, "");
    EXPECT_EQ(exchange.run.out, expected) << reply;
}

// The monitor's lines without their time stamps ("[...]:" and the blank).
std::string withoutStamps(const std::string& out) {
    std::string lines;
    std::size_t start = 0;
    while (start < out.size()) {
        std::size_t end = out.find('\n', start);
        end = end == std::string::npos ? out.size() : end + 1;
        std::string line = out.substr(start, end - start);
        if (std::size_t stamp = line.find("]: ");
            line.starts_with("[") && stamp != std::string::npos) {
            line.erase(0, stamp + 3);
        }
        lines += line;
        start = end;
    }
    return lines;
}

TEST(HostileDaemonTest, MonitorTakesEachEventValueAsItsTypeAllows) {
    // clang-format off
    std::vector<ValueCase> deviceCases = {
        {"id", "-1", "device id:4294967295 \"n\" got on"},
        {"id", "4294967297", "device id:1 \"n\" got on"},
        {"id", "2.7", "device id:2 \"n\" got on"},
        {"addr", R"("10.0.0.7")", "device id:3 \"n\" got on@10.0.0.7"},
        {"addr", R"("")", "device id:3 \"n\" got on@"},
    };
    std::vector<ValueCase> hostCases = {
        {"port", "-1", "host h:4294967295 is up"},
        {"port", "4294967296", "host h:0 is up"},
        {"port", "1.5", "host h:1 is up"},
    };
    // clang-format on
    for (const char* value : kNotNumbers) {
        deviceCases.push_back({"id", value, nullptr});
        hostCases.push_back({"port", value, nullptr});
    }
    for (const char* value : kNotStrings) {
        deviceCases.push_back({"name", value, nullptr});
        deviceCases.push_back({"state", value, nullptr});
        // An optional address of another type counts as absent.
        deviceCases.push_back({"addr", value, "device id:3 \"n\" got on"});
        hostCases.push_back({"addr", value, nullptr});
        hostCases.push_back({"state", value, nullptr});
    }
    std::string events;
    std::string expected;
    const Members device = {{"id", "3"}, {"name", R"("n")"}, {"state", R"("on")"}};
    for (const ValueCase& c : deviceCases) {
        events += packet(4, objectText(with(device, c.key, c.value)));
        expected += c.shown != nullptr ? std::string(c.shown) + "\n" : "";
    }
    const Members host = {{"addr", R"("h")"}, {"port", "32999"}, {"state", R"("up")"}};
    for (const ValueCase& c : hostCases) {
        events += packet(5, objectText(with(host, c.key, c.value)));
        expected += c.shown != nullptr ? std::string(c.shown) + "\n" : "";
    }
    // Packets of other codes are no events, whatever they hold.
    events += packet(0, kOneDevice) + packet(6, kOk) + packet(3, objectText(device));
    ScriptedDaemon daemon;
    daemon.onAccept([&events](PeerConnection& p) {
        p.sendRaw(events);
        p.close();
    });
    Exchange exchange = runAgainst(daemon, {"monitor"});
    EXPECT_EQ(exchange.run.status, 5);
    EXPECT_EQ(exchange.run.err, kStoppedByPeer);
    EXPECT_EQ(withoutStamps(exchange.run.out), expected);
    EXPECT_EQ(describe(exchange.sent), std::vector<std::string>{}) << "the monitor only listens";
}

TEST(HostileDaemonTest, RuleListTakesEachValueAsItsTypeAllows) {
    // Each record is numbered by its place in the array, skipped ones too.
    // clang-format off
    const ValueCase cases[] = {
        {"quick", R"("yes")", "share"},
        {"quick", "1", "share quick"},
        {"quick", "0", "share "},
        {"host", R"("a")", "share"},
        {"host", R"(["a",5,null,["b"],"c"])", R"(share host "a,c")"},
        {"host", "[]", R"(share host "")"},
        {"rdesk", "0", "share !rdesk"},
        {"rdesk", R"("true")", "share"},
        {"name", "5", "share"},
        {"built-in", "-0.5", "share built-in"},
        {"built-in", "[]", "share"},
        {"vid", "-1", "share hwid ffff"},
        {"vid", "74565", "share hwid 2345"},
        {"vid", "1.9", "share hwid 0001"},
        {"vid", R"("1")", "share"},
        {"serial", "5", "share"},
        {"port", "5", "share"},
        {"class", "264", "share class 08"},
        {"class", R"("8")", "share"},
        {"override-name", "null", "share"},
        {"override-serial", "{}", "share"},
        {"takeaway", "0", "share "},
        {"takeaway", R"("no")", "share"},
        {"action", "5", nullptr},
        {"action", R"("allow")", "allow"},
    };
    // clang-format on
    std::string records = R"(7,null,"share")"; // not objects: numbers 1 to 3 used up
    std::string expected;
    std::size_t index = 3;
    for (const ValueCase& c : cases) {
        records += "," + objectText(with({{"action", R"("share")"}}, c.key, c.value));
        ++index;
        if (c.shown != nullptr) {
            expected += std::to_string(index) + ": " + c.shown + "\n";
        }
    }
    // Keys that only count beside another one.
    const std::pair<const char*, const char*> companions[] = {
        {R"({"action":"block","host":["a"],"notHost":"yes"})", R"(block host "a")"},
        {R"({"action":"block","host":["a"],"notHost":2})", R"(block !host "a")"},
        {R"({"action":"block","name":"x","nameMatch":"IS"})", "block"},
        {R"({"action":"block","name":"x","nameMatch":1})", "block"},
        {R"({"action":"block","vid":1,"pid":"2","rev":3})", "block hwid 0001"},
        {R"({"action":"block","vid":1,"rev":3})", "block hwid 0001"},
        {R"({"action":"block","class":8,"subclass":300,"protocol":null})", "block class 08:12c"},
        {R"({"action":"block","serial":"s","notSerial":[]})", R"(block serial "s")"},
    };
    for (const auto& [record, line] : companions) {
        records += std::string(",") + record;
        expected += std::to_string(++index) + ": " + line + "\n";
    }
    const std::string reply = R"({"status":5,"rules":[)" + records + "]}";
    ScriptedDaemon daemon;
    answerEach(daemon, {{6, packet(6, kOk)}, {7, packet(7, reply)}});
    Exchange exchange = runAgainst(daemon, {"rule", "list"});
    EXPECT_EQ(exchange.run.status, 0) << "a status that is not text is no failure report";
    EXPECT_EQ(exchange.run.err, "");
    EXPECT_EQ(exchange.run.out, expected) << reply;
}

struct StatusCase {
    std::vector<std::string> args;
    std::uint32_t code;  // the reply that carries the status
    std::string prelude; // packets sent before it, each on its request
};

// "status" of a type other than text is a failure for every command that
// reads it, the lenient ones included.
TEST(HostileDaemonTest, StatusOfTheWrongTypeIsAnInternalError) {
    const StatusCase commands[] = {
        {{"conn", "kill", "7"}, 2, ""},
        {{"conn", "drop", "h"}, 2, ""},
        {{"dev", "unplug", "7"}, 3, ""},
        {{"dev", "share", "7"}, 6, ""},
        {{"dev", "block", "7"}, 9, packet(6, kOk)},
        {{"dev", "share", "7"}, 11, packet(6, kOk) + packet(9, kOk)},
        {{"rule", "list"}, 6, ""},
        {{"rule", "test", "-r", "7"}, 6, ""},
        {{"rule", "test", "-r", "7"}, 10, packet(6, kOk)},
    };
    for (const StatusCase& command : commands) {
        for (const char* status : {"null", "true", "0", "1", R"(["ok"])", R"({"status":"ok"})"}) {
            const std::string reply = std::string(R"({"status":)") + status + R"(,"verdict":"v"})";
            ScriptedDaemon daemon;
            // The prelude's replies come one per request, then the probe.
            std::vector<std::string> script;
            for (std::string_view rest = command.prelude; !rest.empty();) {
                const std::size_t size =
                    link::kHeaderSize +
                    link::decodeHeader(reinterpret_cast<const unsigned char*>(rest.data())).size;
                script.emplace_back(rest.substr(0, size));
                rest.remove_prefix(size);
            }
            script.push_back(packet(command.code, reply));
            daemon.onPacket(
                [script, next = std::size_t{0}](const ReceivedPacket&, PeerConnection& p) mutable {
                    if (next < script.size()) {
                        p.sendRaw(script[next++]);
                    }
                });
            Exchange exchange = runAgainst(daemon, command.args);
            const std::string what = testing::PrintToString(command.args) + " " + reply;
            EXPECT_EQ(exchange.run.status, 5) << what;
            EXPECT_EQ(exchange.run.err, kInternalError) << what;
            EXPECT_EQ(exchange.run.out, "") << what;
        }
    }
}

TEST(HostileDaemonTest, VerdictMustBeText) {
    struct VerdictCase {
        const char* verdict;
        std::string out;
        std::string err;
        int status;
    };
    const VerdictCase cases[] = {
        {R"("")", "\n", "", 0},
        {"5", "", kInternalError, 5},
        {"null", "", kInternalError, 5},
        {R"(["share"])", "", kInternalError, 5},
    };
    for (const VerdictCase& c : cases) {
        ScriptedDaemon daemon;
        const std::string reply = std::string(R"({"status":"ok","verdict":)") + c.verdict + "}";
        answerEach(daemon, {{6, packet(6, kOk)}, {10, packet(10, reply)}});
        Exchange exchange = runAgainst(daemon, {"rule", "test", "-r", "1"});
        EXPECT_EQ(exchange.run.status, c.status) << reply;
        EXPECT_EQ(exchange.run.out, c.out) << reply;
        EXPECT_EQ(exchange.run.err, c.err) << reply;
    }
}

} // namespace
} // namespace halvo::testkit
