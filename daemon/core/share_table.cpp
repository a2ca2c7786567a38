#include "daemon/core/share_table.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/peer_text.h"

#include <algorithm>
#include <map>

namespace halvo::daemon {

namespace {

constexpr std::string_view kSharedState = "shared";
constexpr std::string_view kHostLeft = "disconnected";
constexpr std::string_view kDeviceGone = "the device went away";

} // namespace

std::string RemoteHost::logText() const {
    const std::string at = endpointText(addr, port);
    return names.empty() ? at : shownAs() + " (" + at + ")";
}

ShareTable::ShareTable(DeviceTable& devices, ConnectionTable& connections, const RuleStore& rules,
                       Action defaultAction, ShareHandOff& handOff)
    : devices_(devices), connections_(connections), rules_(rules), defaultAction_(defaultAction),
      handOff_(handOff) {}

bool ShareTable::mayImport(const Device& device, const RemoteHost& host) const {
    if (device.deviceClass == kHubClass || device.bus.deviceClass == kHubClass) {
        return false;
    }
    Peer peer{false, host.addr, host.names};
    return evaluate(rules_.committed(), device, peer, defaultAction_).action == Action::share;
}

std::vector<Device> ShareTable::visibleTo(const RemoteHost& host) const {
    std::vector<Device> visible;
    for (const Device& device : devices_.devices()) {
        if (mayImport(device, host)) {
            visible.push_back(device);
        }
    }
    return visible;
}

void ShareTable::import(std::string_view port, const RemoteHost& host, int socketFd,
                        Imported imported) {
    const auto& all = devices_.devices();
    auto found = std::find_if(all.begin(), all.end(),
                              [port](const Device& device) { return device.port == port; });
    if (found == all.end() || !mayImport(*found, host)) {
        logActivity(LogLevel::warning, "import refused: no such device for this host",
                    {{log_field::kPeer, host.logText()}, {log_field::kDevice, std::string(port)}});
        imported(ImportResult{});
        return;
    }
    if (found->state == kSharedState || handOff_.busy(found->port)) {
        imported(ImportResult{ImportStatus::busy, std::nullopt, {}});
        return;
    }
    handOff_.handOver(*found, socketFd,
                      [this, device = *found, host,
                       imported = std::move(imported)](const util::Expected<void>& handedOver) {
                          imported(started(device, host, handedOver));
                      });
}

ImportResult ShareTable::started(const Device& device, const RemoteHost& host,
                                 const util::Expected<void>& handedOver) {
    ImportResult result;
    const std::initializer_list<LogField> fields{{log_field::kPeer, host.logText()},
                                                 {log_field::kDevice, device.port}};
    if (!handedOver) {
        logActivity(LogLevel::error, "share failed: " + handedOver.error(), fields);
        result.status = ImportStatus::error;
        return result;
    }
    const Device* now = devices_.find(device.id);
    if (stopped_ || now == nullptr || !mayImport(*now, host)) {
        giveBack(device);
        logActivity(LogLevel::warning,
                    stopped_ ? "import refused: halvod stops"
                             : "import refused: the device went away or is no longer shared "
                               "with this host",
                    fields);
        result.status = stopped_ ? ImportStatus::error : ImportStatus::noDevice;
        return result;
    }
    shares_.push_back(Share{device, host});
    result.events.push_back(connections_.addNetwork(host.shownAs(), host.port));
    if (auto event = devices_.recordShare(device.id, host.shownAs())) {
        result.events.push_back(std::move(*event));
    }
    logActivity(LogLevel::notice, "share started", fields);
    result.status = ImportStatus::ok;
    result.device = *devices_.find(device.id);
    return result;
}

void ShareTable::giveBack(const Device& device) {
    handOff_.end(device, [port = device.port](const util::Expected<void>& givenBack) {
        if (!givenBack) {
            logActivity(LogLevel::error, "giving the device back failed: " + givenBack.error(),
                        {{log_field::kDevice, port}});
        }
    });
}

template <typename Selector>
std::vector<Event> ShareTable::endWhere(Selector ending, std::string_view reason,
                                        std::string_view hostState) {
    std::vector<Event> events;
    std::vector<Share> ended;
    std::erase_if(shares_, [&](const Share& share) {
        if (!ending(share)) {
            return false;
        }
        ended.push_back(share);
        return true;
    });
    for (const Share& share : ended) {
        giveBack(share.device);
        logActivity(
            LogLevel::notice, "share ended: " + std::string(reason),
            {{log_field::kPeer, share.host.logText()}, {log_field::kDevice, share.device.port}});
        if (auto event =
                connections_.removeNetwork(share.host.shownAs(), share.host.port, hostState)) {
            events.push_back(std::move(*event));
        }
        if (auto event = devices_.recordShare(share.device.id, std::nullopt)) {
            events.push_back(std::move(*event));
        }
    }
    return events;
}

std::vector<Event> ShareTable::endForHost(std::string_view addr,
                                          std::optional<std::uint16_t> port) {
    return endWhere(
        [&](const Share& share) {
            return share.host.shownAs() == addr && (!port || share.host.port == *port);
        },
        "connection dropped", "dropped");
}

std::vector<Event> ShareTable::endForDevice(std::uint32_t id) {
    return endWhere([id](const Share& share) { return share.device.id == id; }, "device unplugged",
                    kHostLeft);
}

std::vector<Event> ShareTable::endRefused() {
    return endWhere(
        [this](const Share& share) {
            const Device* device = devices_.find(share.device.id);
            return device == nullptr || !mayImport(*device, share.host);
        },
        "the rules no longer share it", kHostLeft);
}

std::vector<Event> ShareTable::endGone() {
    return endWhere(
        [this](const Share& share) { return devices_.find(share.device.id) == nullptr; },
        kDeviceGone, kHostLeft);
}

std::vector<Event> ShareTable::endDetached() {
    std::vector<Event> events = endGone();
    std::map<std::uint32_t, ShareUse> uses;
    for (const Share& share : shares_) {
        uses.emplace(share.device.id, handOff_.use(share.device));
    }
    const auto ending = [&uses](ShareUse use) {
        return [&uses, use](const Share& share) { return uses[share.device.id] == use; };
    };
    for (Event& event : endWhere(ending(ShareUse::deviceGone), kDeviceGone, kHostLeft)) {
        events.push_back(std::move(event));
    }
    for (Event& event : endWhere(ending(ShareUse::released),
                                 "the remote host detached or the link broke", kHostLeft)) {
        events.push_back(std::move(event));
    }
    return events;
}

std::vector<Event> ShareTable::endAll() {
    stopped_ = true;
    return endWhere([](const Share&) { return true; }, "halvod stops", kHostLeft);
}

} // namespace halvo::daemon
