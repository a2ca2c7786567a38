#include "daemon/platform/linux/usbip_host.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/peer_text.h"
#include "daemon/platform/linux/sysfs_attribute.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace halvo::daemon {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kDriverName = "usbip-host";
constexpr std::string_view kStatusInUse = "2";
constexpr auto kSettleStep = std::chrono::milliseconds(10);
// A device that is still being probed when usbip-host is asked to take it
// is refused once (busy); the next attempt finds it bound.
constexpr int kTakeAttempts = 3;

// The name of the driver bound to the device in `folder`, if any.
std::optional<std::string> boundDriver(const fs::path& folder) {
    std::error_code error;
    fs::path target = fs::read_symlink(folder / "driver", error);
    if (error) {
        return std::nullopt;
    }
    return target.filename().string();
}

bool present(const fs::path& folder) {
    std::error_code error;
    return fs::exists(folder, error);
}

util::Expected<void> firstFailure(std::initializer_list<const util::Expected<void>*> steps) {
    for (const util::Expected<void>* step : steps) {
        if (!*step) {
            return *step;
        }
    }
    return {};
}

} // namespace

UsbipHost::UsbipHost(boost::asio::io_context& loop, const fs::path& devicesRoot, Writer writer)
    : devices_(devicesRoot.lexically_normal()), write_(std::move(writer)), worker_(loop) {
    if (devices_.filename().empty()) {
        devices_ = devices_.parent_path();
    }
    bus_ = devices_.parent_path();
    driver_ = bus_ / "drivers" / kDriverName;
    if (!write_) {
        write_ = writeAttribute;
    }
}

UsbipHost::~UsbipHost() {
    worker_.finish();
}

void UsbipHost::handOver(const Device& device, int socketFd, Done done) {
    const std::string port = device.port;
    // The worker writes the number of a descriptor of its own: the caller's
    // may be closed, and its number go to another socket, before then.
    const int own = ::fcntl(socketFd, F_DUPFD_CLOEXEC, 0);
    std::string unkept;
    if (own < 0) {
        unkept = std::string("cannot keep the connection: ") + std::strerror(errno);
    }
    handingOver_.insert(port);
    runFor(
        port,
        [this, port, own, unkept]() -> Outcome {
            if (own < 0) {
                return {util::Failure{unkept}};
            }
            util::Expected<void> taken = take(port, own);
            ::close(own);
            if (taken) {
                return {};
            }
            Outcome outcome = slotState(port, free(port));
            outcome.result = std::move(taken);
            return outcome;
        },
        [this, port, done = std::move(done)](const Outcome& outcome) {
            handingOver_.erase(port);
            done(outcome.result);
        });
}

util::Expected<void> UsbipHost::take(const std::string& port, int socketFd) const {
    const fs::path folder = devices_ / port;
    if (auto matched = write_(driver_ / "match_busid", "add " + port); !matched) {
        return matched;
    }
    util::Expected<void> step;
    auto current = boundDriver(folder);
    if (current != kDriverName) {
        if (current) {
            step = write_(folder / "driver" / "unbind", port);
        }
        if (step) {
            step = write_(driver_ / "bind", port);
        }
    }
    if (step) {
        step = write_(folder / "usbip_sockfd", std::to_string(socketFd) + "\n");
    }
    return step;
}

ShareUse UsbipHost::use(const Device& device) {
    const fs::path folder = devices_ / device.port;
    if (readAttribute(folder, "usbip_status") == kStatusInUse) {
        return ShareUse::inUse;
    }
    return present(folder) ? ShareUse::released : ShareUse::deviceGone;
}

void UsbipHost::end(const Device& device, Done ended) {
    const std::string port = device.port;
    runFor(
        port, [this, port] { return release(port); },
        [ended = std::move(ended)](const Outcome& outcome) {
            if (ended) {
                ended(outcome.result);
            }
        });
}

void UsbipHost::portChanged(const std::string& port) {
    // A job still under way for the port may leave its slot behind; but
    // the bind of a hand-over under way reports its own port, whose device
    // usbip-host is to keep.
    if (handingOver_.contains(port) || (!slotsLeft_.contains(port) && !pending_.contains(port))) {
        return;
    }
    runFor(
        port,
        [this, port]() -> Outcome {
            if (!listed(port) || !present(devices_ / port)) {
                return slotState(port, {});
            }
            Outcome outcome = slotState(port, free(port));
            outcome.slotFreed = outcome.result.has_value();
            return outcome;
        },
        [port](const Outcome& outcome) {
            if (!outcome.result) {
                logActivity(LogLevel::error,
                            "cannot free usbip-host's slot: " + outcome.result.error(),
                            {{log_field::kDevice, port}});
            } else if (outcome.slotFreed) {
                logActivity(LogLevel::info, "usbip-host's slot of a device that went away freed",
                            {{log_field::kDevice, port}});
            }
        });
}

void UsbipHost::runFor(const std::string& port, std::function<Outcome()> job,
                       std::function<void(const Outcome&)> done) {
    ++pending_[port];
    worker_.run(std::move(job), [this, port, done = std::move(done)](Outcome outcome) {
        if (auto found = pending_.find(port); found != pending_.end() && --found->second == 0) {
            pending_.erase(found);
        }
        if (outcome.slotLeft) {
            slotsLeft_.insert(port);
        } else {
            slotsLeft_.erase(port);
        }
        if (done) {
            done(outcome);
        }
        if (pending_.empty()) {
            for (auto& idle : std::exchange(idleWaiters_, {})) {
                idle();
            }
        }
    });
}

void UsbipHost::whenIdle(std::function<void()> idle) {
    if (pending_.empty()) {
        idle();
    } else {
        idleWaiters_.push_back(std::move(idle));
    }
}

UsbipHost::Outcome UsbipHost::release(const std::string& port) const {
    const fs::path folder = devices_ / port;
    const auto inUse = [&folder] { return readAttribute(folder, "usbip_status") == kStatusInUse; };
    if (inUse()) {
        if (auto stopped = write_(folder / "usbip_sockfd", "-1"); !stopped) {
            return slotState(port, stopped);
        }
        // The kernel closes the connection and resets the device on its own
        // worker; an unbind before that worker is done frees the device
        // under it (an oops in usbip_core's event_handler). It is done when
        // the status leaves "in use", normally within milliseconds.
        const auto deadline = std::chrono::steady_clock::now() + kReleaseBound;
        while (inUse()) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return slotState(port, util::Failure{"usbip-host still uses the device after " +
                                                     std::to_string(kReleaseBound.count()) +
                                                     " s: left with it"});
            }
            std::this_thread::sleep_for(kSettleStep);
        }
    }
    return slotState(port, free(port));
}

util::Expected<void> UsbipHost::free(const std::string& port) const {
    const fs::path folder = devices_ / port;
    if (!present(folder)) {
        return {};
    }
    // rebind reaches for the device usbip-host last took on this port: that
    // must be this device, or the kernel follows a stale pointer.
    for (int attempt = 0;
         attempt < kTakeAttempts && boundDriver(folder) != kDriverName && listed(port); ++attempt) {
        if (boundDriver(folder)) {
            static_cast<void>(write_(folder / "driver" / "unbind", port));
        }
        static_cast<void>(write_(driver_ / "bind", port));
    }
    if (auto current = boundDriver(folder); current != kDriverName) {
        if (!current) {
            static_cast<void>(write_(bus_ / "drivers_probe", port));
        }
        if (listed(port)) {
            return util::Failure{"usbip-host does not take " + port + " to free its slot"};
        }
        return {};
    }
    auto unbound = write_(driver_ / "unbind", port);
    auto unmatched = write_(driver_ / "match_busid", "del " + port);
    auto rebound = write_(driver_ / "rebind", port);
    if (!rebound) {
        rebound = write_(bus_ / "drivers_probe", port);
    }
    return firstFailure({&unbound, &unmatched, &rebound});
}

std::set<std::string> UsbipHost::matchTable() const {
    std::set<std::string> ports;
    std::istringstream entries(readAttribute(driver_, "match_busid").value_or(""));
    for (std::string entry; entries >> entry;) {
        ports.insert(entry);
    }
    return ports;
}

bool UsbipHost::listed(const std::string& port) const {
    return matchTable().contains(port);
}

UsbipHost::Outcome UsbipHost::slotState(const std::string& port,
                                        util::Expected<void> result) const {
    return {std::move(result), !present(devices_ / port) && listed(port)};
}

ShareHandOff::Recovery UsbipHost::recoverLeftovers() {
    std::set<std::string> ports = matchTable();
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(devices_, error)) {
        const std::string port = entry.path().filename().string();
        if (port.find(':') == std::string::npos && boundDriver(entry.path()) == kDriverName) {
            ports.insert(port);
        }
    }
    Recovery recovery;
    for (const std::string& port : ports) {
        if (!present(devices_ / port)) {
            slotsLeft_.insert(port);
        } else if (auto freed = free(port); !freed) {
            recovery.problems.push_back(freed.error());
        } else {
            recovery.ports.push_back(port);
        }
    }
    return recovery;
}

} // namespace halvo::daemon
