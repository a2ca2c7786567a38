// The kernel's uevents, read on the daemon's event loop from a netlink
// socket (or a datagram socket that carries the same messages), reported
// as the bus changes they describe.  Messages that are not a USB device's
// change, or not the kernel's, are ignored.
#pragma once

#include "daemon/core/bus_monitor.h"
#include "util/expected.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace halvo::daemon {

class KernelUevents final : public BusMonitor {
  public:
    // Takes ownership of `socket`.  On a netlink socket only the kernel's
    // messages count; on another datagram socket (handed over by whoever
    // started the daemon) every message does.
    KernelUevents(boost::asio::io_context& io, int socket, bool fromNetlink);

    void start(ChangeSink sink) override;
    void stop() override;

  private:
    struct Datagram {
        std::size_t size = 0; // in buffer_
        std::uint32_t senderPort = 0;
    };

    void awaitMessages();
    // The next waiting message, or the error number that kept it.
    std::variant<Datagram, int> receive();
    // Reads what is waiting; false when the socket failed for good.
    bool readWaiting();

    boost::asio::posix::stream_descriptor socket_;
    bool fromNetlink_;
    ChangeSink sink_;
    bool stopped_ = false;
    // One byte more than the longest message, so that a longer one shows.
    std::vector<char> buffer_;
};

// A netlink socket that receives the kernel's uevents, or why none can be
// made.
util::Expected<int> openUeventSocket();

} // namespace halvo::daemon
