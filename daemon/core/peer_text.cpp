#include "daemon/core/peer_text.h"

namespace halvo::daemon {

boost::asio::ip::address plainAddress(const boost::asio::ip::address& address) {
    if (address.is_v6() && address.to_v6().is_v4_mapped()) {
        return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, address.to_v6());
    }
    return address;
}

std::string endpointText(const boost::asio::ip::tcp::endpoint& endpoint) {
    return endpointText(plainAddress(endpoint.address()).to_string(), endpoint.port());
}

std::string endpointText(std::string_view address, std::uint16_t port) {
    const bool v6 = address.find(':') != std::string_view::npos;
    return (v6 ? "[" + std::string(address) + "]" : std::string(address)) + ":" +
           std::to_string(port);
}

std::string uidText(std::optional<uid_t> uid) {
    return uid ? std::to_string(*uid) : std::string("none");
}

} // namespace halvo::daemon
