#include "rules/rule_printer.h"
#include "tests/support/rule_printing.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace {

namespace json = boost::json;
using halvo::testkit::finished;
using halvo::testkit::printReply;

json::object reply(std::string_view text) {
    return json::parse(text).as_object();
}

struct LineCase {
    const char* record;
    const char* line; // without the line feed
};

// Each clause as its record allows, one rule a line, unnumbered.
TEST(RulePrinterTest, ClausesAsTheRecordAllows) {
    // clang-format off
    const LineCase cases[] = {
        // Every clause, in its fixed order whatever the record's order.
        {R"({"takeaway": true, "override-name": "Key", "class": 8, "subclass": 6, "protocol": 80,
             "port": "1-2", "serial": "A1B2", "pid": 21863, "vid": 1921, "built-in": false,
             "nameMatch": "contains", "name": "Token", "host": ["10.0.0.5", "lab-mac"],
             "quick": true, "action": "share"})",
         R"(share quick host "10.0.0.5,lab-mac" name contains "Token" !built-in hwid 0781:5567 serial "A1B2" port 1-2 class 08:06:50 override-name "Key" takeaway)"},
        // Flags and negations.
        {R"({"action": "block", "rdesk": false})", "block !rdesk"},
        {R"({"action": "share", "rdesk": 1, "built-in": 0})", "share rdesk !built-in"},
        {R"({"action": "share", "quick": false, "rdesk": true})", "share  rdesk"},
        {R"({"action": "share", "quick": 2})", "share quick"},
        {R"({"action": "share", "takeaway": false})", "share "},
        {R"({"action": "share", "quick": "yes", "takeaway": null})", "share"},
        {R"({"action": "share", "port": "3", "notPort": 1.5})", "share !port 3"},
        {R"({"action": "share", "port": "3", "notPort": false})", "share port 3"},
        {R"({"action": "share", "port": "3", "notPort": "true"})", "share port 3"},
        {R"({"action": "share", "notSerial": true, "notHWID": true})", "share"},
        {R"({"action": "allow"})", "allow"},
        // Hosts exclude rdesk.
        {R"({"action": "share", "host": [], "rdesk": true})", "share host \"\""},
        {R"({"action": "share", "host": ["a", 5, "b"], "notHost": true})", "share !host \"a,b\""},
        {R"({"action": "share", "host": [5, "b"]})", "share host \"b\""},
        {R"({"action": "share", "host": "a", "rdesk": true})", "share rdesk"},
        // A name needs a known match mode.
        {R"({"action": "share", "name": "K", "nameMatch": "is", "notName": true})", "share !name is \"K\""},
        {R"({"action": "share", "name": "K"})", "share"},
        {R"({"action": "share", "name": "K", "nameMatch": "equals"})", "share"},
        {R"({"action": "share", "name": 5, "nameMatch": "is"})", "share"},
        // Ids are hex groups, each needing the one before.
        {R"({"action": "share", "vid": 4660})", "share hwid 1234"},
        {R"({"action": "share", "vid": 4660, "rev": 1})", "share hwid 1234"},
        {R"({"action": "share", "pid": 1, "rev": 1})", "share"},
        {R"({"action": "share", "vid": 74565, "pid": -1, "rev": 2.9})", "share hwid 2345:ffff:0002"},
        {R"({"action": "share", "vid": "12"})", "share"},
        {R"({"action": "share", "vid": true})", "share"},
        {R"({"action": "share", "class": 511, "subclass": 4660, "protocol": 65537})", "share class ff:1234:01"},
        {R"({"action": "share", "class": 3, "protocol": 2})", "share class 03"},
        {R"({"action": "share", "class": 3, "notClass": true, "notHWID": true})", "share !class 03"},
        // Strings are printed as they are.
        {R"({"action": "share", "serial": "a\"b\\c"})", R"(share serial "a"b\c")"},
        {R"({"action": "share", "port": "1 #2"})", "share port 1 #2"},
        {R"({"action": "share", "override-name": "", "override-serial": "x y"})", R"(share override-name "" override-serial "x y")"},
        {R"({"action": "%s", "host": ["%n", "%x"], "name": "%p", "nameMatch": "is", "serial": "%d",
             "port": "%n", "override-name": "%%", "override-serial": "%s"})",
         R"(%s host "%n,%x" name is "%p" serial "%d" port %n override-name "%%" override-serial "%s")"},
        // Texts end at a NUL, as "%s" ends them.
        {R"({"action": "share\u0000d", "host": ["a\u0000b", "c"], "serial": "s\u0000"})", R"(share host "a,c" serial "s")"},
    };
    // clang-format on
    for (const LineCase& c : cases) {
        const json::object rules{{"rules", json::array{json::parse(c.record)}}};
        EXPECT_TRUE(finished(printReply(rules, 0), 0, std::string(c.line) + "\n", "")) << c.record;
    }
}

struct StatusCase {
    const char* reply;
    int status;
    const char* out;
    const char* err;
};

// Failures write only to stderr; a status that is not text is no failure;
// skipped elements use up their number.
TEST(RulePrinterTest, StatusAndListDecideTheOutcome) {
    const StatusCase cases[] = {
        {R"({"status": "ok", "rules": [{"action": "share"}]})", 5, "", "Internal error.\n"},
        {R"({"status": "", "rules": []})", 5, "", "Internal error.\n"},
        {R"({})", 5, "", "Rule list format error.\n"},
        {R"({"rules": {"action": "share"}})", 5, "", "Rule list format error.\n"},
        {R"({"status": 1, "rules": [{"action": "share"}]})", 0, "1: share\n", ""},
        {R"({"rules": []})", 0, "", ""},
        {R"({"rules": [{"action": "share"}, 7, {"rdesk": true}, {"action": 1}, {"action": "block"}]})",
         0, "1: share\n5: block\n", ""},
    };
    for (const StatusCase& c : cases) {
        EXPECT_TRUE(finished(printReply(reply(c.reply), 1), c.status, c.out, c.err)) << c.reply;
    }
}

} // namespace
