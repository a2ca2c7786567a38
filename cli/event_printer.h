// The monitor's printer for the events the daemon pushes.
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

namespace halvo::cli {

// Command codes of the packets the monitor prints.
inline constexpr std::uint32_t deviceEventCode = 4;
inline constexpr std::uint32_t hostEventCode = 5;

// "[Sun Nov 22 07:01:02 2026]:" for `now` in local time, or "-" when the
// time cannot be converted or formatted.
std::string eventTimestamp(std::time_t now);

// Prints one line on `out` for a device event (code 4: "id", "name",
// "state", optional "addr") or a host event (code 5: "addr", "port",
// "state"), stamped with the local time `now`. Other codes print nothing,
// and so does an event that lacks a required key or holds one of the wrong
// JSON type; an "addr" of the wrong type in a device event counts as
// absent. The stream is not flushed.
void printEvent(std::uint32_t command, const boost::json::object& payload, std::FILE* out,
                std::time_t now);

// As above, stamped with the current time. The stamp is taken as the packet
// is handed over, whatever its code.
void printEvent(std::uint32_t command, const boost::json::object& payload, std::FILE* out);

} // namespace halvo::cli
