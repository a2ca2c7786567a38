// An entry of a "host" clause as a network address, so that rules and peers
// are compared as addresses, not as text: "127.000.000.001", "127.0.0.1" and
// "::ffff:127.0.0.1" are one host, and so are "::1" and "0:0:0:0:0:0:0:1".
//
// Accepted: IPv4 as four decimal numbers from 0 to 255 (leading zeros are
// decimal, never octal: "010" is 10), and IPv6 in any form inet_pton(3)
// reads, with such an IPv4 part at the end.  The zone of a link-local
// address ("fe80::1%eth0") is not compared.  Anything else, host names
// above all, is no address: no network peer ever matches it, since the
// daemon resolves no names.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace halvo::rules {

// IPv6 bytes; an IPv4 address as its IPv4-mapped form (::ffff:a.b.c.d).
using HostAddress = std::array<std::uint8_t, 16>;

std::optional<HostAddress> parseHostAddress(std::string_view text);

} // namespace halvo::rules
