#include "cli/commands.h"
#include "cli/exit_status.h"
#include "cli/reply_status.h"
#include "link/packet.h"
#include "listings/device_list.h"

#include <cstdio>
#include <cstdlib>

namespace halvo::cli {

using link::CommandCode;
using link::QVHalvoIPCClient;
namespace json = boost::json;

void installDeviceList(CommandContext& context) {
    context.onConnected([](QVHalvoIPCClient& client) { client.getDeviceList(); });
    context.onData([](QVHalvoIPCClient&, std::uint32_t code, const json::object& reply) {
        if (code == link::code(CommandCode::deviceList)) {
            listings::outputDeviceList(reply, stdout);
            std::exit(exitStatus::success);
        }
    });
}

void installDeviceUnplug(CommandContext& context) {
    const std::uint32_t deviceId = context.invocation.deviceId;
    context.onConnected(
        [deviceId](QVHalvoIPCClient& client) { client.requestDisconnectDevice(deviceId); });
    context.onData([](QVHalvoIPCClient&, std::uint32_t code, const json::object& reply) {
        if (code != link::code(CommandCode::disconnectDevice)) {
            return;
        }
        // Lenient: a reply without a status is success. Unplug has no
        // not-found message of its own.
        ReplyStatus status = readStatus(reply);
        if (status == ReplyStatus::absent || status == ReplyStatus::ok) {
            std::exit(exitStatus::success);
        }
        exitInternalError();
    });
}

namespace {

void onRuleInserted(QVHalvoIPCClient& client, const json::object& reply) {
    switch (readStatus(reply)) {
    case ReplyStatus::ok:
        client.endRuleTransaction(true);
        return;
    case ReplyStatus::notFound:
        std::fputs("The device has not been found.\n", stderr);
        std::exit(exitStatus::notFound);
    default:
        exitInternalError();
    }
}

void installDeviceRule(CommandContext& context, const char* action) {
    const std::uint32_t deviceId = context.invocation.deviceId;
    context.onConnected([](QVHalvoIPCClient& client) { client.startRuleTransaction(); });
    context.onData([deviceId, action](QVHalvoIPCClient& client, std::uint32_t code,
                                      const json::object& reply) {
        switch (static_cast<CommandCode>(code)) {
        case CommandCode::startRuleTransaction:
            if (!isStrictOk(reply) || !client.insertRuleForDevice(deviceId, action)) {
                exitInternalError();
            }
            return;
        case CommandCode::insertRuleForDevice:
            onRuleInserted(client, reply);
            return;
        case CommandCode::endRuleTransaction:
            if (!isStrictOk(reply)) {
                exitInternalError();
            }
            std::exit(exitStatus::success);
        default:
            return;
        }
    });
}

} // namespace

void installDeviceShare(CommandContext& context) {
    installDeviceRule(context, "share");
}

void installDeviceBlock(CommandContext& context) {
    installDeviceRule(context, "block");
}

} // namespace halvo::cli
