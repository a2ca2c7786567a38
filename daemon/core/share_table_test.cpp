#include "daemon/core/activity_log.h"
#include "daemon/core/rule_text.h"
#include "daemon/core/share_table.h"
#include "tests/support/recording_hand_off.h"

#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

namespace json = boost::json;

Device device(std::string port, std::string name, std::uint8_t deviceClass) {
    Device made;
    made.port = std::move(port);
    made.name = std::move(name);
    made.deviceClass = deviceClass;
    made.state = "available";
    return made;
}

json::array rulesOf(std::string_view text) {
    return parseRuleText(text).value();
}

// "4 {...}" per event: its code and payload.
std::vector<std::string> describe(const std::vector<Event>& events) {
    std::vector<std::string> texts;
    for (const Event& event : events) {
        texts.push_back(std::to_string(link::code(event.code)) + " " +
                        json::serialize(event.payload));
    }
    return texts;
}

// A keyboard (1-1, id 1), a memory stick (1-2, id 2) and a hub (1-3), with
// everything shared with 10.0.0.5 only.
struct Sharing {
    explicit Sharing(std::string_view ruleText = "share host \"10.0.0.5\"\n")
        : rules(rulesOf(ruleText)) {
        devices.update({device("1-1", "Keyboard", 3), device("1-2", "Stick", 8),
                        device("1-3", "Hub", kHubClass)});
    }

    // The result of an import that is answered at once.
    ImportResult import(std::string_view port, const RemoteHost& host, int socketFd) {
        ImportResult answer{ImportStatus::error, std::nullopt, {}};
        shares.import(port, host, socketFd, [&answer](ImportResult result) { answer = result; });
        return answer;
    }

    DeviceTable devices;
    ConnectionTable connections;
    RuleStore rules;
    testkit::RecordingHandOff handOff;
    ShareTable shares{devices, connections, rules, Action::block, handOff};
};

const RemoteHost kLab{"10.0.0.5", 1000};

TEST(ShareTableTest, HostsSeeAndImportOnlyWhatTheRulesShareWithThem) {
    Sharing sharing;
    auto ports = [](const std::vector<Device>& devices) {
        std::string text;
        for (const Device& device : devices) {
            text += device.port + " ";
        }
        return text;
    };
    EXPECT_EQ(ports(sharing.shares.visibleTo("10.0.0.5")), "1-1 1-2 ");
    EXPECT_EQ(ports(sharing.shares.visibleTo("10.0.0.6")), "");

    const std::pair<const char*, RemoteHost> refused[] = {
        {"1-3", kLab}, {"9-9", kLab}, {"1-1", {"10.0.0.6", 1000}}};
    for (const auto& [port, host] : refused) {
        ImportResult result = sharing.import(port, host, 7);
        EXPECT_EQ(result.status, ImportStatus::noDevice) << port << " for " << host.addr;
        EXPECT_TRUE(result.events.empty());
    }
    EXPECT_TRUE(sharing.handOff.calls.empty());

    ImportResult imported = sharing.import("1-1", kLab, 7);
    ASSERT_EQ(imported.status, ImportStatus::ok);
    EXPECT_EQ(imported.device->state, "shared");
    EXPECT_EQ(describe(imported.events),
              (std::vector<std::string>{
                  R"(5 {"type":"net","addr":"10.0.0.5","port":1000,"state":"connected"})",
                  R"(4 {"id":1,"name":"Keyboard","state":"shared","addr":"10.0.0.5"})"}));
    EXPECT_EQ(sharing.import("1-1", {"10.0.0.5", 1001}, 8).status, ImportStatus::busy);
    sharing.handOff.failure = "no usbip-host";
    EXPECT_EQ(sharing.import("1-2", kLab, 9).status, ImportStatus::error);
    EXPECT_EQ(sharing.handOff.calls, (std::vector<std::string>{"over 1-1 fd 7", "over 1-2 fd 9"}));
    EXPECT_EQ(sharing.devices.find(2)->state, "available");
    EXPECT_EQ(sharing.connections.connections().size(), 1u);
    // A rescan keeps the share; the ends are shown end to end.
    sharing.devices.update({device("1-1", "Keyboard", 3), device("1-2", "Stick", 8)});
    EXPECT_EQ(*sharing.devices.find(1)->addr, "10.0.0.5");
    sharing.handOff.detached = {"1-1"};
    EXPECT_EQ(describe(sharing.shares.endDetached()),
              (std::vector<std::string>{
                  R"(5 {"type":"net","addr":"10.0.0.5","port":1000,"state":"disconnected"})",
                  R"(4 {"id":1,"name":"Keyboard","state":"available"})"}));
    EXPECT_EQ(sharing.handOff.calls.back(), "end 1-1");
}

struct Lines final : LogSink {
    std::vector<std::string> lines;
    void write(LogLevel, std::string_view message, std::span<const LogField>) override {
        lines.emplace_back(message);
    }
};

// The log says why each share ended; a device counts as busy until it is
// given back, and a give-back that failed is logged once that is known.
TEST(ShareTableTest, EachEndSaysWhyAndTheDeviceIsBusyUntilGivenBack) {
    auto sink = std::make_shared<Lines>();
    setLogSink(sink);
    Sharing sharing;
    ASSERT_EQ(sharing.import("1-1", kLab, 7).status, ImportStatus::ok);
    ASSERT_EQ(sharing.import("1-2", kLab, 8).status, ImportStatus::ok);
    sharing.handOff.gone = {"1-1"};
    sharing.handOff.detached = {"1-2"};
    EXPECT_EQ(sharing.shares.endDetached().size(), 4u);
    EXPECT_EQ(sharing.import("1-2", kLab, 9).status, ImportStatus::busy);
    sharing.handOff.finishEnds(util::Failure{"unbind refused"});
    EXPECT_EQ(sharing.import("1-2", kLab, 9).status, ImportStatus::ok);
    // A rescan without the device.
    sharing.devices.update({device("1-1", "Keyboard", 3)});
    EXPECT_EQ(sharing.shares.endGone().size(), 1u);
    // A device is busy while it is handed over too; a hand-over done after
    // the sharing stopped gives the device back.
    sharing.handOff.holdHandOvers = true;
    std::optional<ImportStatus> late;
    sharing.shares.import("1-1", kLab, 10, [&late](ImportResult result) { late = result.status; });
    EXPECT_EQ(sharing.import("1-1", kLab, 11).status, ImportStatus::busy);
    EXPECT_TRUE(sharing.shares.endAll().empty());
    sharing.handOff.finishHandOvers();
    EXPECT_EQ(late, ImportStatus::error);
    EXPECT_EQ(sharing.handOff.calls.back(), "end 1-1");
    setLogSink(nullptr);
    EXPECT_EQ(sink->lines,
              (std::vector<std::string>{
                  "share started", "share started", "share ended: the device went away",
                  "share ended: the remote host detached or the link broke",
                  "giving the device back failed: unbind refused",
                  "giving the device back failed: unbind refused", "share started",
                  "share ended: the device went away", "import refused: halvod stops"}));
}

// A host that proved a certificate is shown, and dropped, by its name.
TEST(ShareTableTest, ACertifiedHostIsKnownByItsCertificateName) {
    Sharing sharing("share host \"lab-mac.local\"\n");
    const RemoteHost certified{"10.0.0.9", 1000, {"lab-mac.local"}};
    EXPECT_EQ(sharing.shares.visibleTo(certified).size(), 2u);
    EXPECT_TRUE(sharing.shares.visibleTo("10.0.0.9").empty());
    ImportResult imported = sharing.import("1-1", certified, 7);
    ASSERT_EQ(imported.status, ImportStatus::ok);
    EXPECT_EQ(describe(imported.events),
              (std::vector<std::string>{
                  R"(5 {"type":"net","addr":"lab-mac.local","port":1000,"state":"connected"})",
                  R"(4 {"id":1,"name":"Keyboard","state":"shared","addr":"lab-mac.local"})"}));
    EXPECT_TRUE(sharing.shares.endForHost("10.0.0.9", std::nullopt).empty());
    EXPECT_EQ(sharing.shares.endForHost("lab-mac.local", std::nullopt).size(), 2u);
}

} // namespace
} // namespace halvo::daemon
