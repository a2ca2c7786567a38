// A transport connection to a numeric host address and a port.
#pragma once

#include "link/tcp_common_connection.h"

#include <cstdint>
#include <memory>

namespace halvo::link {

class QVTCPConnection : public QVTCPCommonConnection {
  public:
    // Makes the connection object (no traffic yet). False, after logging
    // "cannot initialize TCP connection object", when no socket can be made
    // for that address.
    bool initWithString(const char* host, std::uint16_t port, std::shared_ptr<Logger> logger);

    // Starts connecting; always true.
    bool start() override;
};

} // namespace halvo::link
