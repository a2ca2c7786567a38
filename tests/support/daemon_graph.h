// The daemon's request path as halvod wires it, over fixture devices and a
// simulated hand-off: what the control front end's tests drive, in process.
#pragma once

#include "daemon/control/request_handler.h"
#include "daemon/platform/fixture_backend.h"
#include "daemon/platform/fixture_hand_off.h"

#include <boost/json/parse.hpp>

namespace halvo::testkit {

// A receiver (id 1) and a stick with a serial shared with 10.0.0.5 (id 2).
inline std::vector<daemon::Device> twoDevices() {
    return daemon::parseDeviceFixture(boost::json::parse(R"({"devices": [
        {"vid": 1133, "pid": 49948, "rev": 272, "port": "1-1", "name": "Receiver", "class": 3},
        {"vid": 1921, "pid": 21863, "rev": 256, "port": "1-2", "name": "Stick", "serial": "S N",
         "state": "shared", "addr": "10.0.0.5"}]})")
                                          .as_object())
        .value();
}

// Two connections of 10.0.0.5 (ports 1000 and 1001) and a remote desktop
// (pid 4242).
inline std::vector<daemon::Connection> threeConnections() {
    return daemon::parseConnectionFixture(boost::json::parse(R"({"connections": [
        {"type": "net", "addr": "10.0.0.5", "port": 1000},
        {"type": "net", "addr": "10.0.0.5", "port": 1001},
        {"type": "rdesk", "app": "Screen Sharing", "pid": 4242}]})")
                                              .as_object())
        .value();
}

// The seven objects halvod's service layer wires for a control request, on
// those devices and connections, with committed rules that nothing saves.
struct DaemonGraph {
    DaemonGraph(boost::json::array ruleList, daemon::Action byDefault)
        : backend(twoDevices()), connections(threeConnections()),
          rules(std::move(ruleList), nullptr),
          shares(devices, connections, rules, byDefault, handOff),
          handler(backend, devices, connections, rules, shares, byDefault) {
        devices.update(backend.scan().devices);
    }

    daemon::FixtureBackend backend;
    daemon::DeviceTable devices;
    daemon::ConnectionTable connections;
    daemon::RuleStore rules;
    daemon::FixtureHandOff handOff;
    daemon::ShareTable shares;
    daemon::RequestHandler handler;
};

} // namespace halvo::testkit
