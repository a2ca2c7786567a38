// The names of the structured fields in the daemon's log records and the one
// text form of each value that more than one layer writes: a peer's address
// and a client's uid. Every front end and the service use these, so that a
// journal query finds the same peer written the same way wherever it acted.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace halvo::daemon::log_field {

inline constexpr std::string_view kClient = "HALVO_CLIENT";
inline constexpr std::string_view kConfig = "HALVO_CONFIG";
inline constexpr std::string_view kDevice = "HALVO_DEVICE";
inline constexpr std::string_view kPeer = "HALVO_PEER";
inline constexpr std::string_view kRequest = "HALVO_REQUEST";
inline constexpr std::string_view kUid = "HALVO_UID";

// "ADDRESS:PORT", an IPv6 address in brackets; an IPv4 client of a dual-stack
// listener is written as the IPv4 address it is.
std::string endpointText(const boost::asio::ip::tcp::endpoint& endpoint);

// The uid in decimal, or "none" for a peer that is no local user.
std::string uidText(std::optional<uid_t> uid);

} // namespace halvo::daemon::log_field
