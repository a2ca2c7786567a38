// What the daemon answers to each request, independent of sockets.
//
// Every request gets one reply with the request's command code.  Replies that
// report an outcome carry "status": "ok", "notfound", or a sentence that says
// what went wrong; the list replies (codes 0, 1, 7) carry only their array.
// A request may also cause events, which the server pushes to every client
// after the reply.
#pragma once

#include "daemon/core/connection_table.h"
#include "daemon/core/device_backend.h"
#include "daemon/core/device_table.h"
#include "daemon/core/event.h"
#include "daemon/core/rule_engine.h"
#include "daemon/core/rule_store.h"

#include <boost/json/object.hpp>
#include <cstdint>
#include <vector>

namespace halvo::daemon {

inline constexpr std::string_view kStatusOk = "ok";
inline constexpr std::string_view kStatusNotFound = "notfound";
inline constexpr std::string_view kStatusBusy = "busy: another client holds the rule transaction";
inline constexpr std::string_view kStatusNoTransaction = "no rule transaction";
inline constexpr std::string_view kStatusUnknownCommand = "unknown command";

struct Outcome {
    boost::json::object reply;
    std::vector<Event> events;
};

class RequestHandler {
  public:
    RequestHandler(DeviceBackend& backend, DeviceTable& devices, ConnectionTable& connections,
                   RuleStore& rules, Action defaultAction);

    Outcome handle(ClientId client, std::uint32_t command, const boost::json::object& request);

    // The client has gone: its rule transaction, if any, is rolled back.
    void clientLeft(ClientId client);

  private:
    Outcome listDevices(ClientId client, const boost::json::object& request);
    Outcome listConnections(ClientId client, const boost::json::object& request);
    Outcome killConnection(ClientId client, const boost::json::object& request);
    Outcome unplugDevice(ClientId client, const boost::json::object& request);
    Outcome startTransaction(ClientId client, const boost::json::object& request);
    Outcome listRules(ClientId client, const boost::json::object& request);
    Outcome loadRules(ClientId client, const boost::json::object& request);
    Outcome insertDeviceRule(ClientId client, const boost::json::object& request);
    Outcome testRules(ClientId client, const boost::json::object& request);
    Outcome endTransaction(ClientId client, const boost::json::object& request);

    using Handler = Outcome (RequestHandler::*)(ClientId, const boost::json::object&);
    struct Route {
        link::CommandCode command;
        Handler handler;
    };
    static const Route kRoutes[];

    DeviceBackend& backend_;
    DeviceTable& devices_;
    ConnectionTable& connections_;
    RuleStore& rules_;
    Action defaultAction_;
};

} // namespace halvo::daemon
