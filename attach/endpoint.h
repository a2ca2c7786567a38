// The server an importer talks to: "HOST[:PORT]", "[IPV6]:PORT" or a bare
// IPv6 address; the USB/IP port 3240 when none is named.
#pragma once

#include "util/expected.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace halvo::attach {

inline constexpr std::uint16_t kUsbipPort = 3240;

struct Endpoint {
    std::string host;
    std::uint16_t port = kUsbipPort;

    // "host:3240", "[fe80::1]:3240".
    std::string text() const;
};

util::Expected<Endpoint> parseEndpoint(std::string_view text);

} // namespace halvo::attach
