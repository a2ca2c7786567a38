#include "cli/commands.h"
#include "cli/exit_status.h"
#include "cli/reply_status.h"
#include "link/packet.h"
#include "listings/connection_list.h"

#include <cstdio>
#include <cstdlib>

namespace halvo::cli {

using link::CommandCode;
using link::QVHalvoIPCClient;
namespace json = boost::json;

namespace {

// Lenient: a reply without a status is success.
void onConnectionKilled(QVHalvoIPCClient&, std::uint32_t code, const json::object& reply) {
    if (code != link::code(CommandCode::killConnection)) {
        return;
    }
    switch (readStatus(reply)) {
    case ReplyStatus::absent:
    case ReplyStatus::ok:
        std::exit(exitStatus::success);
    case ReplyStatus::notFound:
        std::fputs("Connection has not been found.\n", stderr);
        std::exit(exitStatus::notFound);
    default:
        exitInternalError();
    }
}

} // namespace

void installConnectionList(CommandContext& context) {
    context.onConnected([](QVHalvoIPCClient& client) { client.getConnectionList(); });
    context.onData([](QVHalvoIPCClient&, std::uint32_t code, const json::object& reply) {
        if (code == link::code(CommandCode::connectionList)) {
            listings::outputConnectionList(reply, stdout);
            std::exit(exitStatus::success);
        }
    });
}

void installConnectionDrop(CommandContext& context) {
    const char* host = context.invocation.host;
    const bool hasPort = context.invocation.hasPort;
    const std::uint16_t port = context.invocation.port;
    context.onConnected([host, hasPort, port](QVHalvoIPCClient& client) {
        client.requestKillConnectionWith(host, hasPort ? &port : nullptr);
    });
    context.onData(onConnectionKilled);
}

void installConnectionKill(CommandContext& context) {
    const std::uint32_t pid = context.invocation.pid;
    context.onConnected(
        [pid](QVHalvoIPCClient& client) { client.requestKillConnectionWithPID(pid); });
    context.onData(onConnectionKilled);
}

} // namespace halvo::cli
