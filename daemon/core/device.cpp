#include "daemon/core/device.h"

namespace halvo::daemon {

namespace json = boost::json;

bool isSameDevice(const Device& left, const Device& right) {
    return left.port == right.port && left.vid == right.vid && left.pid == right.pid &&
           left.serial == right.serial;
}

json::object toListRecord(const Device& device) {
    json::object record;
    record["id"] = device.id;
    record["vid"] = device.vid;
    record["pid"] = device.pid;
    record["rev"] = device.rev;
    record["port"] = device.port;
    record["built-in"] = device.builtIn;
    record["name"] = device.name;
    record["serial"] = device.serial;
    record["state"] = device.state;
    if (device.addr) {
        record["addr"] = *device.addr;
    }
    record["class"] = device.deviceClass;
    record["subclass"] = device.subclass;
    record["protocol"] = device.protocol;
    return record;
}

json::object toEventPayload(const Device& device, std::string_view state) {
    json::object payload;
    payload["id"] = device.id;
    payload["name"] = device.name;
    payload["state"] = state;
    if (device.addr) {
        payload["addr"] = *device.addr;
    }
    return payload;
}

} // namespace halvo::daemon
