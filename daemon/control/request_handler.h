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
#include "daemon/core/share_table.h"

#include <boost/json/object.hpp>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <variant>
#include <vector>

namespace halvo::daemon {

inline constexpr std::string_view kStatusOk = "ok";
inline constexpr std::string_view kStatusNotFound = "notfound";
inline constexpr std::string_view kStatusConflict =
    "conflict: the rules changed since this transaction began";
inline constexpr std::string_view kStatusPermissionDenied =
    "permission denied: only root, the daemon's user and the admin group may change this";
inline constexpr std::string_view kStatusNoTransaction = "no rule transaction";
inline constexpr std::string_view kStatusUnknownCommand = "unknown command";

// Who sent a request.
struct Caller {
    ClientId id = 0;
    std::optional<uid_t> uid; // the local user, when one is known
    bool mayChange = false;   // may drop, unplug and commit
};

struct Outcome {
    boost::json::object reply;
    std::vector<Event> events;
    // The reply already serialized (off the event loop), used instead of
    // `reply` when not empty.
    std::string serialized = {};
};

class RequestHandler {
  public:
    // Drops, unplugs and commits end the shares in `shares` that they
    // concern.
    RequestHandler(DeviceBackend& backend, DeviceTable& devices, ConnectionTable& connections,
                   RuleStore& rules, ShareTable& shares, Action defaultAction);

    Outcome handle(const Caller& caller, std::uint32_t command, const boost::json::object& request);

    // The end of a request whose long part ran elsewhere: runs on the loop.
    using Finish = std::function<Outcome()>;
    // The long part: touches none of the daemon's state, so it may run on
    // another thread; it never throws (a Finish that throws std::bad_alloc
    // reports memory that ran out).
    using OffLoopWork = std::function<Finish()>;
    // For a request that would hold the event loop long (a large rule load,
    // a test or a list over a large set), its work in two parts, taking the
    // request; nothing for any other request (then handle it).
    std::optional<OffLoopWork> offLoop(const Caller& caller, std::uint32_t command,
                                       boost::json::object& request);

    // The client has gone: its rule transaction, if any, is rolled back.
    void clientLeft(ClientId client);

    // Whether rule sets of a size worth handing back to the system were freed
    // since it last said so.
    bool freedMemory();

    // A reload may change what decides when no rule matches.
    void setDefaultAction(Action action) { defaultAction_ = action; }

  private:
    Outcome listDevices(const Caller& caller, const boost::json::object& request);
    Outcome listConnections(const Caller& caller, const boost::json::object& request);
    Outcome killConnection(const Caller& caller, const boost::json::object& request);
    Outcome unplugDevice(const Caller& caller, const boost::json::object& request);
    Outcome startTransaction(const Caller& caller, const boost::json::object& request);
    Outcome listRules(const Caller& caller, const boost::json::object& request);
    Outcome loadRules(const Caller& caller, const boost::json::object& request);
    Outcome insertDeviceRule(const Caller& caller, const boost::json::object& request);
    Outcome testRules(const Caller& caller, const boost::json::object& request);
    Outcome endTransaction(const Caller& caller, const boost::json::object& request);

    // A load's checks and its copy into memory of its own, within `room`
    // bytes: touches no state.
    struct PreparedLoad {
        std::optional<Outcome> refusal;
        RuleSetCopy rules;
        std::size_t count = 0;
        std::string readBack; // the rule parser's diagnostic, for the log
    };
    static PreparedLoad prepareLoad(const boost::json::object& request, std::size_t room);
    Outcome finishLoad(const Caller& caller, PreparedLoad prepared);
    // A test's device and peer, or the reply that refuses it.
    struct TestQuestion {
        Device device;
        Peer peer;
    };
    std::variant<TestQuestion, Outcome> testQuestion(const boost::json::object& request) const;

    using Handler = Outcome (RequestHandler::*)(const Caller&, const boost::json::object&);
    struct Route {
        link::CommandCode command;
        Handler handler;
    };
    static const Route kRoutes[];

    DeviceBackend& backend_;
    DeviceTable& devices_;
    ConnectionTable& connections_;
    RuleStore& rules_;
    ShareTable& shares_;
    Action defaultAction_;
};

} // namespace halvo::daemon
