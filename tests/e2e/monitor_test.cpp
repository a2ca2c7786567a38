// monitor: one stamped line per device or host event until the link ends.
#include "tests/support/e2e.h"

#include <gtest/gtest.h>

namespace halvo::testkit {
namespace {

TEST(MonitorTest, PrintsEventsUntilTheDaemonCloses) {
    ScriptedDaemon daemon;
    daemon.onAccept([](PeerConnection& peer) {
        peer.send(4, R"({"id":3,"name":"Key Drive","state":"shared","addr":"10.0.0.7"})");
        peer.send(4, R"({"id":4,"name":"Mouse","state":"plugged"})");
        peer.send(4, R"({"id":5,"state":"plugged"})"); // no name: dropped
        peer.send(5, R"({"addr":"10.0.0.9","port":32999,"state":"connected"})");
        peer.send(5, R"({"addr":"10.0.0.9","state":"connected"})"); // no port: dropped
        peer.send(6, R"({"status":"ok"})");                         // not an event
        peer.send(0, R"({"devices":[]})");
        peer.send(4, R"({"id":-1,"name":"%s%n","state":"%x"})");
        peer.close();
    });
    RunOptions options;
    options.setEnv = {{"TZ", "UTC"}};
    Exchange exchange = runAgainst(daemon, {"monitor"}, options);
    EXPECT_EQ(exchange.run.status, 5);
    EXPECT_EQ(exchange.run.err, "\nconnection stopped by peer\n");
    EXPECT_EQ(withoutTimestamps(exchange.run.out), "device id:3 \"Key Drive\" got shared@10.0.0.7\n"
                                                   "device id:4 \"Mouse\" got plugged\n"
                                                   "host 10.0.0.9:32999 is connected\n"
                                                   "device id:4294967295 \"%s%n\" got %x\n");
    EXPECT_TRUE(exchange.sent.empty()) << "monitor sends no request";
}

} // namespace
} // namespace halvo::testkit
