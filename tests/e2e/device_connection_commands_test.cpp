// Device and connection commands against a scripted daemon: each reply
// outcome's output, status and the requests sent.
#include "tests/support/e2e.h"

#include <gtest/gtest.h>

namespace halvo::testkit {
namespace {

struct OutcomeCase {
    const char* name;
    std::vector<std::string> args;
    std::vector<Reply> replies; // the answer to each request code
    std::string out;
    std::string err;
    int status;
    std::vector<std::string> sent;
};

constexpr const char* kOk = R"({"status":"ok"})";
constexpr const char* kDeviceReply =
    R"({"devices":[{"id":3,"vid":7531,"pid":2,"rev":1296,"port":"1-2","built-in":true,)"
    R"("name":"Hub","state":"shared","addr":"10.0.0.7","serial":"S1"}]})";

// clang-format off
const OutcomeCase kCases[] = {
    {"dev list prints the table", {"dev"}, {{0, kDeviceReply}}, "ID\tVID: PID: REV\tPort\tDevice name and status\n" "3\t1d6b:0002:0510\t1-2\tHub /built-in, shared@10.0.0.7, S1/\n", "", 0, {"0"}},
    {"dev unplug ok", {"dev", "unplug", "3"}, {{3, kOk}}, "", "", 0, {R"(3 {"id":3})"}},
    {"dev unplug without status is success", {"dev", "unplug", "3"}, {{3, "{}"}}, "", "", 0, {R"(3 {"id":3})"}},
    {"dev unplug notfound is an internal error", {"dev", "unplug", "3"}, {{3, R"({"status":"notfound"})"}}, "", "Internal error.\n", 5, {R"(3 {"id":3})"}},
    {"dev share commits", {"dev", "share", "3"}, {{6, kOk}, {9, kOk}, {11, kOk}}, "", "", 0, {"6", R"(9 {"id":3,"action":"share"})", R"(11 {"action":"commit"})"}},
    {"dev block commits", {"dev", "block", "4"}, {{6, kOk}, {9, kOk}, {11, kOk}}, "", "", 0, {"6", R"(9 {"id":4,"action":"block"})", R"(11 {"action":"commit"})"}},
    {"dev share of an unknown device", {"dev", "share", "3"}, {{6, kOk}, {9, R"({"status":"notfound"})"}}, "", "The device has not been found.\n", 2, {"6", R"(9 {"id":3,"action":"share"})"}},
    {"dev block refused transaction in another case", {"dev", "block", "3"}, {{6, R"({"status":"OK"})"}}, "", "Internal error.\n", 5, {"6"}},
    {"dev share transaction without status", {"dev", "share", "3"}, {{6, "{}"}}, "", "Internal error.\n", 5, {"6"}},
    {"dev share insert without status", {"dev", "share", "3"}, {{6, kOk}, {9, "{}"}}, "", "Internal error.\n", 5, {"6", R"(9 {"id":3,"action":"share"})"}},
    {"dev share insert refused", {"dev", "share", "3"}, {{6, kOk}, {9, R"({"status":"busy"})"}}, "", "Internal error.\n", 5, {"6", R"(9 {"id":3,"action":"share"})"}},
    {"dev share commit refused", {"dev", "share", "3"}, {{6, kOk}, {9, kOk}, {11, R"({"status":"notfound"})"}}, "", "Internal error.\n", 5, {"6", R"(9 {"id":3,"action":"share"})", R"(11 {"action":"commit"})"}},
    {"conn list prints the table", {"conn"}, {{1, R"({"connections":[{"type":"net","addr":"10.0.0.7","port":32999},)" R"({"type":"rdesk","app":"Viewer","pid":70000}]})"}}, "Type\tIP/Name\t\tPort/PID\nnet\t10.0.0.7\t32999\nrdesk\tViewer\t\t4464\n", "", 0, {"1"}},
    {"conn drop ok", {"conn", "drop", "h"}, {{2, kOk}}, "", "", 0, {R"(2 {"host":"h"})"}},
    {"conn drop notfound", {"conn", "drop", "-p", "80", "h"}, {{2, R"({"status":"notfound"})"}}, "", "Connection has not been found.\n", 2, {R"(2 {"host":"h","port":80})"}},
    {"conn kill without status is success", {"conn", "kill", "77"}, {{2, "{}"}}, "", "", 0, {R"(2 {"pid":77})"}},
    {"conn kill failure", {"conn", "kill", "77"}, {{2, R"({"status":"denied"})"}}, "", "Internal error.\n", 5, {R"(2 {"pid":77})"}},
    // A status that is not text is a failure, in each flow.
    {"conn drop status not text", {"conn", "drop", "h"}, {{2, R"({"status":true})"}}, "", "Internal error.\n", 5, {R"(2 {"host":"h"})"}},
    {"dev unplug status not text", {"dev", "unplug", "7"}, {{3, R"({"status":0})"}}, "", "Internal error.\n", 5, {R"(3 {"id":7})"}},
    {"dev block insert status not text", {"dev", "block", "7"}, {{6, kOk}, {9, R"({"status":["ok"]})"}}, "", "Internal error.\n", 5, {"6", R"(9 {"id":7,"action":"block"})"}},
    {"dev share commit status not text", {"dev", "share", "7"}, {{6, kOk}, {9, kOk}, {11, R"({"status":{"status":"ok"}})"}}, "", "Internal error.\n", 5, {"6", R"(9 {"id":7,"action":"share"})", R"(11 {"action":"commit"})"}},
};
// clang-format on

TEST(DeviceConnectionOutcomeTest, EndsAsTheReplySays) {
    for (const OutcomeCase& c : kCases) {
        Exchange exchange = runWithReplies(c.args, c.replies);
        EXPECT_TRUE(finished(exchange.run, c.status, c.out, c.err)) << c.name;
        EXPECT_EQ(describe(exchange.sent), c.sent) << c.name;
    }
}

} // namespace
} // namespace halvo::testkit
