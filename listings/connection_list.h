// The connection table of `conn list`.
#pragma once

#include <boost/json/object.hpp>
#include <cstdio>

namespace halvo::listings {

// Prints the daemon's connection-list reply on `out`: a header, then one
// line per well-formed element of "connections", in array order. A "net"
// connection shows its "addr" and "port", an "rdesk" one its "app" and
// "pid"; both numbers are shown as 16-bit values. Elements of another type,
// or without their name or number, are left out silently; a reply without
// a "connections" array prints nothing at all.
void outputConnectionList(const boost::json::object& reply, std::FILE* out);

} // namespace halvo::listings
