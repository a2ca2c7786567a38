#include "attach/persist.h"

#include "attach/reattach.h"

#include <cerrno>
#include <csignal>
#include <ctime>

namespace halvo::attach {

namespace {

sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int number : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&set, number);
    }
    return set;
}

// Whether a stop signal came within `delay`.
bool stopWithin(std::chrono::seconds delay) {
    const sigset_t set = stopSignals();
    timespec limit{static_cast<std::time_t>(delay.count()), 0};
    for (;;) {
        const int got = ::sigtimedwait(&set, nullptr, &limit);
        if (got > 0) {
            return true;
        }
        if (errno != EINTR) {
            return false; // EAGAIN: the time ran out
        }
    }
}

bool stillAttached(VhciPorts& vhci, const Attached& attached) {
    auto ports = vhci.ports();
    if (!ports) {
        return false;
    }
    for (const VhciPort& port : *ports) {
        if (port.number == attached.port.number) {
            return port.used && port.devid == deviceId(attached.device);
        }
    }
    return false;
}

void blockStopSignals() {
    const sigset_t set = stopSignals();
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
}

} // namespace

int runPersistent(const Endpoint& server, const std::string& busId, const Connector& connect,
                  bool tls, VhciPorts& vhci, Records& records, std::ostream& log) {
    blockStopSignals();
    const std::string what = busId + " from " + server.text();
    Reattach machine;
    ReattachStep step = machine.start();
    std::optional<Attached> current;
    int attempt = 0;
    while (step.delay.count() == 0 || !stopWithin(step.delay)) {
        if (step.action == ReattachAction::attach) {
            ++attempt;
            log << "attempt " << attempt << ": attaching " << what << std::endl;
            Outcome<Attached> outcome = importDevice(server, busId, connect, vhci);
            if (outcome.status == kUsage) {
                log << outcome.message << std::endl;
                return kUsage;
            }
            if (outcome.value) {
                current = outcome.value;
                const auto& port = current->port;
                log << "attached " << what << " on port " << port.number << std::endl;
                (void)records.save({port.number, server.text(), busId, deviceId(current->device),
                                    std::time(nullptr), tls});
                step = machine.on(ReattachEvent::attached);
            } else {
                step = machine.on(ReattachEvent::refused);
                log << "attempt " << attempt << " failed: " << outcome.message << "; next in "
                    << step.delay.count() << " s" << std::endl;
            }
        } else if (step.action == ReattachAction::watch && current &&
                   !stillAttached(vhci, *current)) {
            log << "lost " << what << ": port " << current->port.number << " is free" << std::endl;
            records.forget(current->port.number);
            current.reset();
            step = machine.on(ReattachEvent::linkLost);
        } else {
            step = machine.on(ReattachEvent::timer);
        }
    }
    if (current) {
        auto done = vhci.detach(current->port.number);
        records.forget(current->port.number);
        log << (done ? "detached " + what + " from port " + std::to_string(current->port.number)
                     : "stopping: " + done.error())
            << std::endl;
    }
    return kOk;
}

} // namespace halvo::attach
