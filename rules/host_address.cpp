#include "rules/host_address.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <string>

namespace halvo::rules {

namespace {

// Longer texts are no address; the bound keeps the copy below small.
constexpr std::size_t kMaxAddressText = 64;

// Four dot-separated decimal numbers, each of one to three digits.
std::optional<std::array<std::uint8_t, 4>> parseIpv4(std::string_view text) {
    std::array<std::uint8_t, 4> bytes{};
    for (std::size_t part = 0; part < bytes.size(); ++part) {
        const std::size_t end = part + 1 < bytes.size() ? text.find('.') : text.size();
        const std::string_view digits = text.substr(0, end);
        unsigned value = 256;
        if (digits.empty() || digits.size() > 3 ||
            std::from_chars(digits.data(), digits.data() + digits.size(), value).ptr !=
                digits.data() + digits.size() ||
            value > 255) {
            return std::nullopt;
        }
        bytes[part] = static_cast<std::uint8_t>(value);
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return bytes;
}

std::optional<HostAddress> parseIpv6(std::string_view text) {
    if (const std::size_t zone = text.find('%'); zone != std::string_view::npos) {
        text = text.substr(0, zone);
    }
    std::string plain(text);
    // An IPv4 part at the end is read as above, leading zeros included.
    const std::size_t lastColon = plain.rfind(':');
    if (lastColon != std::string::npos && plain.find('.', lastColon) != std::string::npos) {
        auto ipv4 = parseIpv4(std::string_view(plain).substr(lastColon + 1));
        if (!ipv4) {
            return std::nullopt;
        }
        char groups[16];
        std::snprintf(groups, sizeof groups, "%x:%x", (*ipv4)[0] << 8 | (*ipv4)[1],
                      (*ipv4)[2] << 8 | (*ipv4)[3]);
        plain.replace(lastColon + 1, std::string::npos, groups);
    }
    HostAddress bytes{};
    if (::inet_pton(AF_INET6, plain.c_str(), bytes.data()) != 1) {
        return std::nullopt;
    }
    return bytes;
}

} // namespace

std::optional<HostAddress> parseHostAddress(std::string_view text) {
    if (text.size() > kMaxAddressText) {
        return std::nullopt;
    }
    if (text.find(':') != std::string_view::npos) {
        return parseIpv6(text);
    }
    auto ipv4 = parseIpv4(text);
    if (!ipv4) {
        return std::nullopt;
    }
    HostAddress mapped{};
    mapped[10] = 0xff;
    mapped[11] = 0xff;
    std::memcpy(mapped.data() + 12, ipv4->data(), ipv4->size());
    return mapped;
}

} // namespace halvo::rules
