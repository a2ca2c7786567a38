// Builds without libsystemd: no service manager to talk to.
#include "daemon/service/service_manager.h"

namespace halvo::daemon::service_manager {

void notifyReady(std::string_view) {}
void notifyStatus(std::string_view) {}
void notifyReloading() {}
void notifyStopping() {}

util::Expected<ActivatedSockets> takeActivatedSockets() {
    return ActivatedSockets{};
}

std::shared_ptr<LogSink> journalSinkIfConnected() {
    return nullptr;
}

} // namespace halvo::daemon::service_manager
