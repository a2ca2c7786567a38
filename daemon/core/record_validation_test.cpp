#include "daemon/core/record_validation.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

namespace json = boost::json;

json::object record(std::string_view text) {
    return json::parse(text).as_object();
}

TEST(RecordValidationTest, RecordsTheParserMakesPass) {
    const char* valid[] = {
        R"({"action":"share"})",
        R"({"action":"block","quick":true,"host":["10.0.0.5","lab"],"notHost":true})",
        R"({"action":"share","host":["a"]})",
        R"({"action":"block","rdesk":false,"name":"Key board","nameMatch":"contains","notName":true})",
        R"({"action":"share","built-in":true,"vid":1133,"pid":49948,"rev":272,"notHWID":true})",
        R"({"action":"share","serial":"A1","notSerial":true,"port":"1-2.3","notPort":true})",
        R"({"action":"share","class":8,"subclass":6,"protocol":80,"notClass":true})",
        R"({"action":"share","override-name":"Key","override-serial":"S","takeaway":false})",
    };
    for (const char* text : valid) {
        EXPECT_TRUE(validateRule(record(text)).has_value()) << text;
        json::array set;
        set.push_back(record(text));
        EXPECT_TRUE(validateRuleSet(set).has_value()) << text;
    }
}

TEST(RecordValidationTest, FalseTakeawayIsKeptAsNoTakeaway) {
    json::array set;
    set.push_back(record(R"({"action":"share","takeaway":false})"));
    set.push_back(record(R"({"action":"share","takeaway":true})"));
    auto accepted = validateRuleSet(set);
    ASSERT_TRUE(accepted.has_value());
    EXPECT_EQ(accepted.value(),
              json::parse(R"([{"action":"share"},{"action":"share","takeaway":true}])"));
}

std::string refusal(const json::array& rules) {
    auto accepted = validateRuleSet(rules);
    return !accepted ? accepted.error() : "accepted";
}

const std::pair<const char*, const char*> kRefusals[] = {
    {R"({})", R"("action" is missing)"},
    {R"({"action":"allow"})", R"("action" must be "share" or "block")"},
    {R"({"action":"share","colour":"red"})", R"(unknown key "colour")"},
    {R"({"action":"share","quick":false})", R"("quick" must be true)"},
    {R"({"action":"share","rdesk":1})", R"("rdesk" must be true or false)"},
    {R"({"action":"share","host":["a",5]})", R"("host" must be an array of strings)"},
    {R"({"action":"share","host":["a"],"rdesk":true})", R"("host" together with "rdesk")"},
    {R"({"action":"share","notHost":true})", R"("notHost" without "host")"},
    {R"({"action":"share","name":"x"})", R"("name" without "nameMatch")"},
    {R"({"action":"share","nameMatch":"is"})", R"("nameMatch" without "name")"},
    {R"({"action":"share","name":"x","nameMatch":"starts"})",
     R"("nameMatch" must be "is" or "contains")"},
    {R"({"action":"share","pid":1})", R"("pid" without "vid")"},
    {R"({"action":"share","vid":1,"rev":1})", R"("rev" without "pid")"},
    {R"({"action":"share","vid":65536})", R"("vid" must be an integer from 0 to 65535)"},
    {R"({"action":"share","vid":-1})", R"("vid" must be an integer from 0 to 65535)"},
    {R"({"action":"share","vid":1.5})", R"("vid" must be an integer from 0 to 65535)"},
    {R"({"action":"share","class":3,"protocol":1})", R"("protocol" without "subclass")"},
    {R"({"action":"share","notClass":true})", R"("notClass" without "class")"},
    {R"({"action":"share","serial":"x","notSerial":false})", R"("notSerial" must be true)"},
    {R"({"action":"share","port":12})", R"("port" must be a string)"},
};

TEST(RecordValidationTest, RefusalNamesTheBrokenInvariant) {
    for (const auto& [text, reason] : kRefusals) {
        EXPECT_EQ(validateRule(record(text)).error(), reason) << text;
    }
}

TEST(RecordValidationTest, SetRefusalNamesTheRuleNumber) {
    json::array rules;
    rules.push_back(record(R"({"action":"share"})"));
    rules.push_back(record(R"({"action":"block","pid":2})"));
    EXPECT_EQ(refusal(rules), "invalid rule #2: \"pid\" without \"vid\"");

    rules[1] = 7;
    EXPECT_EQ(refusal(rules), "invalid rule #2: not an object");
}

// Valid records that the rules file could not keep: their rule text reads
// back as something else, so committing them would lose them.
TEST(RecordValidationTest, RecordsThatDoNotSurviveRuleTextAreRefused) {
    const char* unstorable[] = {
        R"({"action":"share","name":"say \"hi\"","nameMatch":"is"})",
        R"({"action":"share","serial":""})",
        R"({"action":"share","port":"1 2"})",
        R"({"action":"share","host":[]})",
        R"({"action":"share","host":["a,b"]})",
        R"({"action":"share","class":256})",
        R"({"action":"share","override-name":"two\nlines"})",
        R"({"action":"share","name":"!x","nameMatch":"is"})",
    };
    for (const char* text : unstorable) {
        json::array set;
        set.push_back(record(text));
        EXPECT_EQ(refusal(set), "invalid rule #1: it does not read back unchanged from rule text")
            << text;
    }
}

} // namespace
} // namespace halvo::daemon
