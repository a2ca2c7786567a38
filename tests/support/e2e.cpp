#include "tests/support/e2e.h"

namespace halvo::testkit {

Exchange runAgainst(ScriptedDaemon& daemon, const std::vector<std::string>& args,
                    const RunOptions& options) {
    daemon.start();
    Exchange exchange;
    exchange.run = runHalvoctl(args, options);
    daemon.join();
    exchange.sent = daemon.received();
    return exchange;
}

Exchange runWithReplies(const std::vector<std::string>& args, const std::vector<Reply>& replies,
                        const RunOptions& options) {
    ScriptedDaemon daemon;
    daemon.onPacket([&replies](const ReceivedPacket& request, PeerConnection& peer) {
        for (const Reply& reply : replies) {
            if (reply.code == request.command) {
                peer.send(reply.code, reply.json);
            }
        }
    });
    return runAgainst(daemon, args, options);
}

std::vector<std::string> describe(const std::vector<ReceivedPacket>& packets) {
    std::vector<std::string> lines;
    for (const ReceivedPacket& packet : packets) {
        std::string line = std::to_string(packet.command);
        if (!packet.payload.empty()) {
            line += " " + packet.payload;
        }
        lines.push_back(line);
    }
    return lines;
}

std::string helpText() {
    return readFile(std::string(HALVO_TEST_DATA_DIR) + "/help.txt");
}

} // namespace halvo::testkit
