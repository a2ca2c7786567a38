#include "daemon/core/rule_engine.h"
#include "daemon/core/rule_text.h"

#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

namespace json = boost::json;

Device keyboard() {
    Device device;
    device.id = 7;
    device.vid = 0x046d;
    device.pid = 0xc31c;
    device.rev = 0x0110;
    device.deviceClass = 3;
    device.subclass = 1;
    device.protocol = 2;
    device.port = "1-2";
    device.name = "USB Keyboard";
    device.serial = "K123";
    device.builtIn = false;
    return device;
}

const Peer kLabHost{false, "10.0.0.5"};
const Peer kOtherHost{false, "10.0.0.6"};
const Peer kRemoteDesktop{true, ""};
const Peer kCertified{false, "10.0.0.7", {"lab-mac.local", "lab.lan"}};

json::array rulesFromText(std::string_view text) {
    auto rules = parseRuleText(text);
    EXPECT_TRUE(rules.has_value()) << text;
    return rules ? *rules : json::array();
}

struct MatchCase {
    const char* rule;
    Peer peer;
    bool matches;
};

// One row per clause and its negation, against the keyboard above.
const MatchCase kMatchCases[] = {
    {"share", kLabHost, true},
    {"share override-name \"X\" override-serial \"Y\" takeaway", kLabHost, true},

    {"share host \"10.0.0.5\"", kLabHost, true},
    {"share host \"10.0.0.6,10.0.0.5\"", kLabHost, true},
    {"share host \"10.0.0.6,10.0.0.7\"", kLabHost, false},
    {"share !host \"10.0.0.6\"", kLabHost, true},
    {"share !host \"10.0.0.5\"", kLabHost, false},
    {"share host \"10.0.0.5\"", kRemoteDesktop, false},
    {"share host \"lab.lan\"", kCertified, true},
    {"share host \"LAB-MAC.local\"", kCertified, true},
    {"share host \"10.0.0.7\"", kCertified, true},
    {"share host \"lab\"", kCertified, false},
    {"share host \"lab-mac.local\"", kLabHost, false},
    {"share !host \"10.0.0.5\"", kRemoteDesktop, true},

    {"share rdesk", kRemoteDesktop, true},
    {"share rdesk", kLabHost, false},
    {"share !rdesk", kLabHost, true},
    {"share !rdesk", kRemoteDesktop, false},

    {"share name is \"USB Keyboard\"", kLabHost, true},
    {"share name is \"USB\"", kLabHost, false},
    {"share name contains \"Key\"", kLabHost, true},
    {"share name contains \"key\"", kLabHost, false},
    {"share !name contains \"Mouse\"", kLabHost, true},
    {"share !name is \"USB Keyboard\"", kLabHost, false},

    {"share built-in", kLabHost, false},
    {"share !built-in", kLabHost, true},

    {"share hwid 046d", kLabHost, true},
    {"share hwid 046d:c31c", kLabHost, true},
    {"share hwid 046d:c31c:0110", kLabHost, true},
    {"share hwid 046d:c31c:0111", kLabHost, false},
    {"share hwid 046d:c31d", kLabHost, false},
    {"share hwid 046e", kLabHost, false},
    {"share hwid 046d::0110", kLabHost, false},
    {"share !hwid 046d:c31c", kLabHost, false},
    {"share !hwid 1234", kLabHost, true},

    {"share serial \"K123\"", kLabHost, true},
    {"share serial \"K12\"", kLabHost, false},
    {"share !serial \"K12\"", kLabHost, true},
    {"share !serial \"K123\"", kLabHost, false},

    {"share port 1-2", kLabHost, true},
    {"share port 1-2.1", kLabHost, false},
    {"share !port 1-2", kLabHost, false},
    {"share !port 1-3", kLabHost, true},

    {"share class 03", kLabHost, true},
    {"share class 03:01", kLabHost, true},
    {"share class 03:01:02", kLabHost, true},
    {"share class 03:01:01", kLabHost, false},
    {"share class 08", kLabHost, false},
    {"share !class 08", kLabHost, true},
    {"share !class 03:01", kLabHost, false},

    // Every condition a rule sets must hold.
    {"share name contains \"Key\" hwid 046d host \"10.0.0.5\"", kLabHost, true},
    {"share name contains \"Key\" hwid 046d host \"10.0.0.5\"", kOtherHost, false},
    {"share name contains \"Key\" hwid 1234", kLabHost, false},
    {"share rdesk class 03 !built-in", kRemoteDesktop, true},
};

TEST(RuleEngineTest, EachClauseAndItsNegation) {
    for (const MatchCase& row : kMatchCases) {
        json::array rules = rulesFromText(row.rule);
        ASSERT_EQ(rules.size(), 1u) << row.rule;
        EXPECT_EQ(ruleMatches(rules[0].get_object(), keyboard(), row.peer), row.matches)
            << row.rule << " for " << (row.peer.remoteDesktop ? "rdesk" : row.peer.addr);
    }
}

struct VerdictCase {
    const char* rules;
    Action defaultAction;
    const char* verdict;
};

const VerdictCase kVerdictCases[] = {
    {"", Action::block, "block (default)"},
    {"", Action::share, "share (default)"},
    {"share hwid 1234\nblock hwid 5678\n", Action::share, "share (default)"},
    // The last matching rule decides...
    {"share\nblock\n", Action::share, "block (rule #2)"},
    {"share\nblock hwid 1234\n", Action::block, "share (rule #1)"},
    {"block\nshare name contains \"Key\"\nblock port 9-9\n", Action::block, "share (rule #2)"},
    // ...unless a matching quick rule came first.
    {"share quick\nblock\n", Action::block, "share (rule #1)"},
    {"block\nshare quick class 03\nblock\n", Action::block, "share (rule #2)"},
    {"share quick hwid 1234\nblock\n", Action::share, "block (rule #2)"},
    {"block quick\nshare quick\n", Action::share, "block (rule #1)"},
};

TEST(RuleEngineTest, VerdictNamesTheDecidingRule) {
    for (const VerdictCase& row : kVerdictCases) {
        json::array rules = rulesFromText(row.rules);
        Verdict verdict = evaluate(rules, keyboard(), kLabHost, row.defaultAction);
        EXPECT_EQ(describe(verdict), row.verdict) << row.rules;
    }
}

struct HostCase {
    const char* host; // as the rule writes it
    const char* peer; // as the front end gives it
    bool matches;
};

// Hosts are compared as addresses.  Under "--default share" a block rule
// that misses its peer fails open, so every form of an address must match.
TEST(RuleEngineTest, HostFormsNameTheSameAddress) {
    const HostCase cases[] = {
        {"127.0.0.1", "127.0.0.1", true},
        {"127.000.000.001", "127.0.0.1", true},
        {"010.0.0.5", "10.0.0.5", true}, // decimal, never octal
        {"010.0.0.5", "8.0.0.5", false},
        {"::ffff:127.0.0.1", "127.0.0.1", true},
        {"::FFFF:7f00:1", "127.0.0.1", true},
        {"::ffff:127.000.000.001", "127.0.0.1", true},
        {"127.0.0.1", "::ffff:127.0.0.1", true},
        {"0:0:0:0:0:0:0:1", "::1", true},
        {"FD00:0::5", "fd00::5", true},
        {"fe80::1%eth0", "fe80::1%veth1", true},
        {"::1", "127.0.0.1", false},
        {"127.0.0.2", "127.0.0.1", false},
        // No addresses: host names are not resolved, and shorthand forms
        // that inet_aton(3) would take are not read.
        {"localhost", "127.0.0.1", false},
        {"lab-mac.local", "lab-mac.local", false},
        {"127.1", "127.0.0.1", false},
        {"0x7f.0.0.1", "127.0.0.1", false},
        {"2130706433", "127.0.0.1", false},
        {"127.0.0.256", "127.0.0.0", false},
        {"127.0.0.1.1", "127.0.0.1", false},
        {"0127.0.0.1", "127.0.0.1", false},
        {"[::1]", "::1", false},
        {"127.0.0.1:80", "127.0.0.1", false},
        {"::ffff:127.1", "127.0.0.1", false},
    };
    for (const HostCase& row : cases) {
        const std::string rule = std::string("block host \"") + row.host + "\"";
        const Verdict verdict =
            evaluate(rulesFromText(rule), keyboard(), Peer{false, row.peer}, Action::share);
        EXPECT_EQ(verdict.action == Action::block, row.matches) << row.host << " / " << row.peer;
    }
}

} // namespace
} // namespace halvo::daemon
