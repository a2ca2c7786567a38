// halvod's sharing, wired: the hand-off that suits the device source (the
// kernel's usbip-host for sysfs devices, a simulation for fixture devices),
// the share table, and with --share-listen the USB/IP server (with
// --share-tls-listen its TLS port too).
#pragma once

#include "daemon/core/bus_monitor.h"
#include "daemon/core/share_table.h"
#include "daemon/service/options.h"
#include "daemon/usbip/server.h"
#include "util/expected.h"

#include <boost/asio/io_context.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace halvo::daemon {

class Sharing {
  public:
    // Also gives back the devices that an earlier run left shared. `io` is
    // the loop that hears how each device was given back.
    static util::Expected<std::unique_ptr<Sharing>>
    create(boost::asio::io_context& io, const Options& options, DeviceTable& devices,
           ConnectionTable& connections, const RuleStore& rules);

    ShareTable& shares() { return shares_; }

    // Starts the USB/IP server on `activated` (the socket that socket
    // activation passed) or where the options ask; none without either. The
    // reason on failure.
    util::Expected<void> serve(boost::asio::io_context& io, const Options& options,
                               std::optional<int> activated, usbip::Server::EventSink sink);

    // The same for the TLS port (--share-tls-listen, or the socket named
    // "usbip-tls"), with the certificate, key and client CA the options
    // name; the reason when one cannot be used.
    util::Expected<void> serveTls(boost::asio::io_context& io, const Options& options,
                                  std::optional<int> activated, usbip::Server::EventSink sink);

    // After a reload: the committed rules and `defaultAction` decide from
    // now on, and the shares they no longer allow end, telling the sink, as
    // after a commit.
    void rulesReplaced(Action defaultAction);

    // After a rescan: the shares whose device went away end, telling the
    // sink.
    void devicesChanged();

    // The bus reported a change of a device (see BusChange).
    void busChanged(const BusChange& change);

    // Ends every share, telling the sink, and stops the servers; `stopped`
    // runs on the loop once every device is given back.
    void stop(std::function<void()> stopped);

  private:
    Sharing(std::unique_ptr<ShareHandOff> handOff, DeviceTable& devices,
            ConnectionTable& connections, const RuleStore& rules, Action defaultAction);

    void publish(const std::vector<Event>& events);

    std::unique_ptr<ShareHandOff> handOff_;
    ShareTable shares_;
    std::unique_ptr<usbip::Server> server_;
    std::unique_ptr<usbip::Server> tlsServer_;
};

} // namespace halvo::daemon
