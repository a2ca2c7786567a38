#include "daemon/core/device_table.h"

#include <algorithm>

namespace halvo::daemon {

namespace json = boost::json;

namespace {

constexpr std::string_view kSharedState = "shared";

Event deviceEvent(const Device& device, std::string_view state) {
    return Event{link::CommandCode::deviceEvent, toEventPayload(device, state)};
}

} // namespace

std::vector<Event> DeviceTable::update(std::vector<Device> scanned) {
    std::vector<Event> events;
    for (const Device& known : devices_) {
        auto stillThere = std::find_if(scanned.begin(), scanned.end(), [&](const Device& device) {
            return isSameDevice(known, device);
        });
        if (stillThere == scanned.end()) {
            events.push_back(deviceEvent(known, "unplugged"));
        }
    }
    for (Device& device : scanned) {
        auto known = std::find_if(devices_.begin(), devices_.end(),
                                  [&](const Device& old) { return isSameDevice(old, device); });
        if (known == devices_.end()) {
            device.id = nextId_++;
            events.push_back(deviceEvent(device, "plugged"));
            continue;
        }
        device.id = known->id;
        if (known->state == kSharedState) {
            device.state = known->state;
            device.addr = known->addr;
        }
        if (device.state != known->state) {
            events.push_back(deviceEvent(device, device.state));
        }
    }
    devices_ = std::move(scanned);
    return events;
}

const Device* DeviceTable::find(std::uint32_t id) const {
    auto found = std::find_if(devices_.begin(), devices_.end(),
                              [id](const Device& device) { return device.id == id; });
    return found == devices_.end() ? nullptr : &*found;
}

json::object DeviceTable::listReply() const {
    json::array list;
    list.reserve(devices_.size());
    for (const Device& device : devices_) {
        list.push_back(toListRecord(device));
    }
    json::object reply;
    reply["devices"] = std::move(list);
    return reply;
}

std::optional<Event> DeviceTable::recordUnplug(std::uint32_t id) {
    auto found = std::find_if(devices_.begin(), devices_.end(),
                              [id](const Device& device) { return device.id == id; });
    if (found == devices_.end()) {
        return std::nullopt;
    }
    Event event = deviceEvent(*found, "unplugged");
    found->state = "available";
    found->addr.reset();
    return event;
}

std::optional<Event> DeviceTable::recordShare(std::uint32_t id, std::optional<std::string> addr) {
    auto found = std::find_if(devices_.begin(), devices_.end(),
                              [id](const Device& device) { return device.id == id; });
    if (found == devices_.end()) {
        return std::nullopt;
    }
    found->state = addr ? kSharedState : "available";
    found->addr = std::move(addr);
    return deviceEvent(*found, found->state);
}

} // namespace halvo::daemon
