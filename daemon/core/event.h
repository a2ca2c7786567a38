// An event that the daemon pushes to every connected client: a command code
// (device or host event) and its JSON payload.
#pragma once

#include "link/packet.h"

#include <boost/json/object.hpp>

namespace halvo::daemon {

struct Event {
    link::CommandCode code;
    boost::json::object payload;
};

} // namespace halvo::daemon
