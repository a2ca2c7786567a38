// What the USB/IP server holds of a host it serves, in clear or in TLS:
// something it can end when it stops.
#pragma once

namespace halvo::daemon::usbip {

class Exchange {
  public:
    virtual ~Exchange() = default;
    virtual void start() = 0;
    // Closes the connection (the kernel keeps its own reference to an
    // imported one) and leaves the server.
    virtual void finish() = 0;
};

} // namespace halvo::daemon::usbip
