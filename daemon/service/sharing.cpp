#include "daemon/service/sharing.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/peer_text.h"
#include "daemon/platform/fixture_hand_off.h"
#include "daemon/platform/system_devices.h"

namespace halvo::daemon {

Sharing::Sharing(std::unique_ptr<ShareHandOff> handOff, DeviceTable& devices,
                 ConnectionTable& connections, const RuleStore& rules, Action defaultAction)
    : handOff_(std::move(handOff)), shares_(devices, connections, rules, defaultAction, *handOff_) {
}

util::Expected<std::unique_ptr<Sharing>>
Sharing::create(boost::asio::io_context& io, const Options& options, DeviceTable& devices,
                ConnectionTable& connections, const RuleStore& rules) {
    std::unique_ptr<ShareHandOff> handOff;
    if (options.deviceFixture) {
        handOff = std::make_unique<FixtureHandOff>();
    } else {
        auto system = openSystemHandOff(io, options.sysfsRoot);
        if (!system) {
            return util::Failure{system.error()};
        }
        handOff = std::move(system).value();
    }
    ShareHandOff::Recovery recovery = handOff->recoverLeftovers();
    for (const std::string& port : recovery.ports) {
        logActivity(LogLevel::notice, "device left shared by an earlier run given back",
                    {{log_field::kDevice, port}});
    }
    for (const std::string& problem : recovery.problems) {
        logActivity(LogLevel::error, "cannot give back a device left shared: " + problem);
    }
    return std::unique_ptr<Sharing>(
        new Sharing(std::move(handOff), devices, connections, rules, options.defaultAction));
}

util::Expected<void> Sharing::serve(boost::asio::io_context& io, const Options& options,
                                    std::optional<int> activated, usbip::Server::EventSink sink) {
    if (!options.shareListen && !activated) {
        return {};
    }
    server_ = std::make_unique<usbip::Server>(io, shares_, std::move(sink), options.sharing);
    if (activated) {
        if (auto adopted = server_->adopt(*activated); !adopted) {
            return util::Failure{"cannot take the passed USB/IP socket: " + adopted.error()};
        }
    } else if (auto listening = server_->listen(*options.shareListen); !listening) {
        return util::Failure{"cannot listen for USB/IP on " + endpointText(*options.shareListen) +
                             ": " + listening.error()};
    }
    logActivity(LogLevel::info, "sharing over USB/IP on " + endpointText(server_->localEndpoint()));
    return {};
}

util::Expected<void> Sharing::serveTls(boost::asio::io_context& io, const Options& options,
                                       std::optional<int> activated,
                                       usbip::Server::EventSink sink) {
    if (!options.shareTlsListen && !activated) {
        return {};
    }
    if (options.tlsCert.empty() || options.tlsKey.empty() || options.tlsClientCa.empty()) {
        return util::Failure{"the USB/IP TLS port needs --tls-cert, --tls-key and --tls-client-ca"};
    }
    auto context = tls::Context::create(tls::Role::server,
                                        {options.tlsCert, options.tlsKey, options.tlsClientCa});
    if (!context) {
        return util::Failure{"cannot serve USB/IP over TLS: " + context.error()};
    }
    tlsServer_ = std::make_unique<usbip::Server>(io, shares_, std::move(sink), options.sharing);
    tlsServer_->useTls(std::move(context).value());
    if (activated) {
        if (auto adopted = tlsServer_->adopt(*activated); !adopted) {
            return util::Failure{"cannot take the passed USB/IP TLS socket: " + adopted.error()};
        }
    } else if (auto listening = tlsServer_->listen(*options.shareTlsListen); !listening) {
        return util::Failure{"cannot listen for USB/IP over TLS on " +
                             endpointText(*options.shareTlsListen) + ": " + listening.error()};
    }
    logActivity(LogLevel::info,
                "sharing over USB/IP in TLS on " + endpointText(tlsServer_->localEndpoint()));
    return {};
}

void Sharing::rulesReplaced(Action defaultAction) {
    shares_.setDefaultAction(defaultAction);
    publish(shares_.endRefused());
}

void Sharing::devicesChanged() {
    if (shares_.size() != 0) {
        publish(shares_.endGone());
    }
}

void Sharing::busChanged(const BusChange& change) {
    if (!change.busid.empty() && (change.action == "add" || change.action == "bind")) {
        handOff_->portChanged(change.busid);
    }
}

void Sharing::stop(std::function<void()> stopped) {
    publish(shares_.endAll());
    if (server_) {
        server_->stop();
    }
    if (tlsServer_) {
        tlsServer_->stop();
    }
    handOff_->whenIdle(std::move(stopped));
}

void Sharing::publish(const std::vector<Event>& events) {
    // Shares exist only while a server does; either tells the clients.
    if (server_) {
        server_->publish(events);
    } else if (tlsServer_) {
        tlsServer_->publish(events);
    }
}

} // namespace halvo::daemon
