#include "daemon/core/log_fields.h"

namespace halvo::daemon::log_field {

std::string endpointText(const boost::asio::ip::tcp::endpoint& endpoint) {
    boost::asio::ip::address address = endpoint.address();
    if (address.is_v6() && address.to_v6().is_v4_mapped()) {
        address = boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, address.to_v6());
    }
    const std::string text = address.to_string();
    return (address.is_v6() ? "[" + text + "]" : text) + ":" + std::to_string(endpoint.port());
}

std::string uidText(std::optional<uid_t> uid) {
    return uid ? std::to_string(*uid) : std::string("none");
}

} // namespace halvo::daemon::log_field
