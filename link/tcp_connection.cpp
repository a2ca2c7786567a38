#include "link/tcp_connection.h"

namespace halvo::link {

bool QVTCPConnection::initWithString(const char* host, std::uint16_t port,
                                     std::shared_ptr<Logger> connectionLogger) {
    if (!initWithAddress(host, port, connectionLogger)) {
        connectionLogger->error("cannot initialize TCP connection object");
        return false;
    }
    return true;
}

bool QVTCPConnection::start() {
    connect();
    return true;
}

} // namespace halvo::link
