// What the USB/IP server holds of a host it serves, in clear or in TLS:
// something it can end when it stops; and the import's hand-over, the same
// on both ports.
#pragma once

#include "daemon/core/share_table.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace halvo::daemon::usbip {

class Server;

class Exchange {
  public:
    virtual ~Exchange() = default;
    virtual void start() = 0;
    // Closes the connection (the kernel keeps its own reference to an
    // imported one) and leaves the server.
    virtual void finish() = 0;

  protected:
    struct ImportAnswer {
        std::vector<std::uint8_t> reply;
        // The kernel carries the connection from now on.
        bool handedOff = false;
    };

    // Gives the connection `socket` the options of a shared one and has the
    // share table hand it over for `host`'s import of `busId`, beside the
    // loop; the events go to the clients, and `answered` hears on the loop
    // the reply to send (the kernel's first bytes on the connection); it must
    // keep the exchange alive.  The
    // socket may be closed meanwhile (the hand-off keeps its own), but
    // nothing else may touch it.
    void handOverImport(Server& server, int socket, const std::string& busId,
                        const RemoteHost& host, std::function<void(ImportAnswer)> answered);
    // From the hand-over's start until `answered` is called: the time it
    // takes is halvod's, not the host's.
    bool handingOver() const { return handingOver_; }

  private:
    bool handingOver_ = false;
};

} // namespace halvo::daemon::usbip
