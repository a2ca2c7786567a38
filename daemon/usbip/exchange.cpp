#include "daemon/usbip/exchange.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/peer_text.h"
#include "daemon/platform/socket_options.h"
#include "daemon/usbip/protocol.h"
#include "daemon/usbip/server.h"

namespace halvo::daemon::usbip {

void Exchange::handOverImport(Server& server, int socket, const std::string& busId,
                              const RemoteHost& host, std::function<void(ImportAnswer)> answered) {
    // The kernel must notice a host that dies while it holds the device.
    const LinkWatch watch = linkWatchFor(server.settings().deadPeerAfter);
    if (auto prepared = prepareSharedSocket(socket, watch); !prepared) {
        logActivity(LogLevel::error, "USB/IP import refused: " + prepared.error(),
                    {{log_field::kPeer, host.logText()}, {log_field::kDevice, busId}});
        answered({encodeImportReply(Status::deviceError, nullptr)});
        return;
    }
    handingOver_ = true;
    server.shares().import(
        busId, host, socket,
        [this, &server, answered = std::move(answered)](const ImportResult& result) {
            handingOver_ = false;
            server.publish(result.events);
            const Device* device = result.device ? &*result.device : nullptr;
            answered({encodeImportReply(wireStatus(result.status), device),
                      result.status == ImportStatus::ok});
        });
}

} // namespace halvo::daemon::usbip
