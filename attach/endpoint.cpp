#include "attach/endpoint.h"

#include <algorithm>
#include <charconv>

namespace halvo::attach {

namespace {

util::Expected<std::uint16_t> parsePort(std::string_view text, std::string_view whole) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || value == 0 || value > 65535) {
        return util::Failure{"bad port in \"" + std::string(whole) + "\": a number 1-65535"};
    }
    return static_cast<std::uint16_t>(value);
}

} // namespace

std::string Endpoint::text() const {
    const bool v6 = host.find(':') != std::string::npos;
    return (v6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

util::Expected<Endpoint> parseEndpoint(std::string_view text) {
    Endpoint endpoint;
    std::string_view port;
    if (text.starts_with('[')) {
        const std::size_t close = text.find(']');
        if (close == std::string_view::npos ||
            (close + 1 < text.size() && text[close + 1] != ':')) {
            return util::Failure{"bad server \"" + std::string(text) + "\": [ADDRESS]:PORT"};
        }
        endpoint.host = text.substr(1, close - 1);
        port = close + 1 < text.size() ? text.substr(close + 2) : std::string_view{};
        if (close + 1 < text.size() && port.empty()) {
            return util::Failure{"bad server \"" + std::string(text) + "\": port missing"};
        }
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        const std::size_t colon = text.find(':');
        endpoint.host = text.substr(0, colon);
        port = text.substr(colon + 1);
        if (port.empty()) {
            return util::Failure{"bad server \"" + std::string(text) + "\": port missing"};
        }
    } else {
        endpoint.host = text; // a name, an IPv4 address, or a bare IPv6 one
    }
    if (endpoint.host.empty()) {
        return util::Failure{"bad server \"" + std::string(text) + "\": no host"};
    }
    if (!port.empty()) {
        auto number = parsePort(port, text);
        if (!number) {
            return util::Failure{number.error()};
        }
        endpoint.port = *number;
    }
    return endpoint;
}

} // namespace halvo::attach
