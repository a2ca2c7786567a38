// Shorthands for end-to-end tests: run halvoctl against a scripted peer and
// describe the packets it sent.
#pragma once

#include "tests/support/files.h"
#include "tests/support/process_runner.h"
#include "tests/support/scripted_daemon.h"

#include <string>
#include <vector>

namespace halvo::testkit {

struct Exchange {
    RunResult run;
    std::vector<ReceivedPacket> sent; // what halvoctl sent, in order
};

// Starts the peer, runs halvoctl to its end, then waits for the session.
Exchange runAgainst(ScriptedDaemon& daemon, const std::vector<std::string>& args,
                    const RunOptions& options = {});

// A daemon that answers each request code with its fixed replies (other
// codes get no answer), run against halvoctl with `args`.
struct Reply {
    std::uint32_t code;
    std::string json;
};
Exchange runWithReplies(const std::vector<std::string>& args, const std::vector<Reply>& replies,
                        const RunOptions& options = {});

// "code payload" per packet, e.g. "2 {\"host\":\"h\"}" or "0" for a bare
// header: compact enough for table-driven expectations.
std::vector<std::string> describe(const std::vector<ReceivedPacket>& packets);

// The help text as halvoctl must print it (a golden file).
std::string helpText();

} // namespace halvo::testkit
