// How the daemon names a peer in its log: the one address form, the one
// text of an endpoint and of a uid, and the names of the structured fields.
// Every front end and the service use these, so that a journal query finds
// the same peer written the same way wherever it acted.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace halvo::daemon {

// The address as the peer is: an IPv4 client of a dual-stack listener
// arrives as an IPv4-mapped IPv6 address and is the IPv4 address.
boost::asio::ip::address plainAddress(const boost::asio::ip::address& address);

// "ADDRESS:PORT", an IPv6 address in brackets.
std::string endpointText(const boost::asio::ip::tcp::endpoint& endpoint);
std::string endpointText(std::string_view address, std::uint16_t port);

// The uid in decimal, or "none" for a peer that is no local user.
std::string uidText(std::optional<uid_t> uid);

namespace log_field {
inline constexpr std::string_view kClient = "HALVO_CLIENT";
inline constexpr std::string_view kConfig = "HALVO_CONFIG";
inline constexpr std::string_view kDetail = "HALVO_DETAIL";
inline constexpr std::string_view kDevice = "HALVO_DEVICE";
inline constexpr std::string_view kPeer = "HALVO_PEER";
inline constexpr std::string_view kRequest = "HALVO_REQUEST";
inline constexpr std::string_view kUid = "HALVO_UID";
} // namespace log_field

} // namespace halvo::daemon
