// The device table of `dev list`.
#pragma once

#include <boost/json/object.hpp>
#include <cstdio>

namespace halvo::listings {

// Prints the daemon's device-list reply as a tab-aligned table on `out`:
// a header, then one row per well-formed element of "devices", in array
// order. Elements that lack a required key, or hold one of the wrong JSON
// type, are left out silently; a reply without a "devices" array prints
// nothing at all. Never writes anything else and never fails.
void outputDeviceList(const boost::json::object& reply, std::FILE* out);

} // namespace halvo::listings
