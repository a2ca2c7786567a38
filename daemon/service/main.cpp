// halvod: serves the USB-sharing control protocol on a loopback port and,
// with --share-listen, shares devices with remote hosts over USB/IP.
#include "daemon/control/request_handler.h"
#include "daemon/control/server.h"
#include "daemon/core/connection_table.h"
#include "daemon/core/device_table.h"
#include "daemon/core/device_watcher.h"
#include "daemon/core/peer_text.h"
#include "daemon/core/rule_store.h"
#include "daemon/platform/fixture_backend.h"
#include "daemon/platform/rules_file.h"
#include "daemon/platform/socket_owner.h"
#include "daemon/platform/system_devices.h"
#include "daemon/service/hotplug.h"
#include "daemon/service/log_sinks.h"
#include "daemon/service/options.h"
#include "daemon/service/reload.h"
#include "daemon/service/service_manager.h"
#include "daemon/service/sharing.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <csignal>
#include <cstdio>
#include <functional>
#include <limits>
#include <memory>
#include <sys/resource.h>
#include <unistd.h>

namespace {

namespace asio = boost::asio;
namespace daemon = halvo::daemon;
namespace util = halvo::util;

constexpr int kExitUsage = 2;
constexpr int kExitStartFailed = 1;

int fail(const std::string& message) {
    daemon::logActivity(daemon::LogLevel::error, message);
    return kExitStartFailed;
}

util::Expected<std::unique_ptr<daemon::DeviceBackend>> makeBackend(const daemon::Options& options) {
    if (!options.deviceFixture) {
        return daemon::openSystemDevices(options.sysfsRoot);
    }
    auto fixture = daemon::FixtureBackend::fromFile(*options.deviceFixture);
    if (!fixture) {
        return util::Failure{fixture.error()};
    }
    return std::unique_ptr<daemon::DeviceBackend>(std::move(fixture).value());
}

util::Expected<daemon::ConnectionTable> makeConnections(const daemon::Options& options) {
    if (!options.connectionFixture) {
        return daemon::ConnectionTable();
    }
    return daemon::ConnectionTable::fromFile(*options.connectionFixture);
}

util::Expected<boost::json::array> loadCommittedRules(const daemon::Options& options) {
    if (!options.rulesPath) {
        daemon::logActivity(daemon::LogLevel::notice,
                            "--rules-in-memory: committed rules are kept in memory only");
        return boost::json::array();
    }
    // A folder that cannot take the file fails here, not at the first commit.
    if (auto usable = daemon::checkRulesFolder(*options.rulesPath); !usable) {
        return util::Failure{usable.error()};
    }
    daemon::removeLeftoverTemporaries(*options.rulesPath);
    return daemon::loadRulesFile(*options.rulesPath);
}

// Every client holds a descriptor: allow as many as the system lets us, and
// serve no more clients than that many descriptors can.
daemon::ClientLimits fitLimitsToDescriptors(const daemon::ClientLimits& wanted) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return wanted;
    }
    if (limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            ::getrlimit(RLIMIT_NOFILE, &limit);
        }
    }
    const std::size_t descriptors = static_cast<std::size_t>(
        std::min<rlim_t>(limit.rlim_cur, std::numeric_limits<std::size_t>::max()));
    daemon::ClientLimits fitted = daemon::fitToDescriptors(wanted, descriptors);
    if (fitted.maxClients < wanted.maxClients) {
        const std::string clients = std::to_string(fitted.maxClients);
        daemon::logActivity(daemon::LogLevel::warning, "serving at most " + clients +
                                                           " clients: the limit of open files is " +
                                                           std::to_string(descriptors));
    }
    return fitted;
}

// Takes the socket that socket activation passed, or binds the address.
util::Expected<void> startListening(daemon::Server& server, const daemon::Options& options,
                                    const daemon::service_manager::ActivatedSockets& passed) {
    if (passed.control) {
        if (auto adopted = server.adopt(*passed.control); !adopted) {
            return util::Failure{"cannot take the passed socket: " + adopted.error()};
        }
        return {};
    }
    if (auto listening = server.listen(options.listen); !listening) {
        return util::Failure{"cannot listen on " + daemon::endpointText(options.listen) + ": " +
                             listening.error()};
    }
    return {};
}

void stopOnSignal(asio::signal_set& signals, const std::function<void()>& stop) {
    signals.async_wait([stop](const boost::system::error_code& error, int number) {
        if (error) {
            return;
        }
        daemon::logActivity(daemon::LogLevel::notice,
                            number == SIGTERM ? "stopping on SIGTERM" : "stopping on SIGINT");
        daemon::service_manager::notifyStopping();
        stop();
    });
}

void reloadOnSignal(asio::signal_set& signals, daemon::Reloader& reloader) {
    signals.async_wait([&signals, &reloader](const boost::system::error_code& error, int) {
        if (error) {
            return;
        }
        reloader.reload();
        reloadOnSignal(signals, reloader);
    });
}

int serve(std::span<const char* const> arguments, daemon::Options options) {
    daemon::logActivity(daemon::LogLevel::info, "starting, version " HALVO_VERSION,
                        {{daemon::log_field::kConfig, options.configPath}});
    auto activated = daemon::service_manager::takeActivatedSockets();
    if (!activated) {
        return fail(activated.error());
    }
    const auto& passed = *activated;
    auto backend = makeBackend(options);
    if (!backend) {
        return fail(backend.error());
    }
    daemon::DeviceBackend& devices = *backend.value();
    daemon::ScanResult scan = devices.scan();
    if (!scan.error.empty()) {
        return fail("device scan failed: " + scan.error);
    }
    daemon::DeviceTable table;
    table.update(std::move(scan.devices));

    auto connections = makeConnections(options);
    if (!connections) {
        return fail(connections.error());
    }
    auto committed = loadCommittedRules(options);
    if (!committed) {
        return fail(committed.error());
    }
    const std::optional<gid_t> adminGroup = daemon::findGroup(options.adminGroup);
    std::optional<daemon::RulesFile> rulesFile;
    if (options.rulesPath) {
        rulesFile.emplace(*options.rulesPath, adminGroup);
    }
    daemon::RuleStore rules(std::move(committed).value(), rulesFile ? &*rulesFile : nullptr,
                            {options.limits.transactionBytes, options.limits.transactionsPerUser});
    // Before everything that holds sockets or timers, so that it outlives them.
    asio::io_context io;
    auto sharing = daemon::Sharing::create(io, options, table, connections.value(), rules);
    if (!sharing) {
        return fail(sharing.error());
    }
    daemon::Sharing& shares = **sharing;
    daemon::RequestHandler handler(devices, table, connections.value(), rules, shares.shares(),
                                   options.defaultAction);

    if (auto available = daemon::socketOwnersAvailable(); !available) {
        daemon::logActivity(daemon::LogLevel::warning,
                            "clients' users cannot be found: " + available.error() +
                                "; every client may look and test, none may change anything");
    }
    daemon::Server server(io, handler, daemon::AccessPolicy(::geteuid(), adminGroup),
                          fitLimitsToDescriptors(options.limits));
    if (auto listening = startListening(server, options, passed); !listening) {
        return fail(listening.error());
    }
    std::unique_ptr<daemon::BusMonitor> busEvents;
    if (devices.seesHotplug()) {
        busEvents = daemon::openHotplugEvents(io, options.rescanPeriod);
    }
    if (auto serving =
            shares.serve(io, options, passed.usbip,
                         [&server](const daemon::Event& event) { server.broadcast(event); });
        !serving) {
        return fail(serving.error());
    }
    if (auto serving =
            shares.serveTls(io, options, passed.usbipTls,
                            [&server](const daemon::Event& event) { server.broadcast(event); });
        !serving) {
        return fail(serving.error());
    }
    daemon::DeviceWatcher watcher(io, devices, table, busEvents.get(), options.rescanPeriod,
                                  [&server, &shares](const daemon::Event& event) {
                                      server.broadcast(event);
                                      shares.devicesChanged();
                                  });
    watcher.observeChanges(
        [&shares](const daemon::BusChange& change) { shares.busChanged(change); });
    if (devices.seesHotplug()) {
        watcher.start();
    }
    asio::signal_set stopSignals(io, SIGINT, SIGTERM);
    stopOnSignal(stopSignals, [&] {
        // Shares end first, so that clients still hear of it; the loop runs
        // on until their devices are given back, so that a device that could
        // not be given back is logged.
        shares.stop([&io] { io.stop(); });
        watcher.stop();
        server.stop();
    });
    daemon::Reloader reloader(arguments, options, rules, handler, shares);
    asio::signal_set reloadSignals(io, SIGHUP);
    reloadOnSignal(reloadSignals, reloader);

    // Tests and scripts wait for this line: it names the port when port 0 was asked for.
    const std::string listening = "listening on " + daemon::endpointText(server.localEndpoint());
    daemon::logActivity(daemon::LogLevel::notice, listening);
    daemon::service_manager::notifyReady(listening + "; " +
                                         std::to_string(rules.committed().size()) + " rules");
    io.run();
    daemon::logActivity(daemon::LogLevel::notice, "stopped");
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    // A client that vanishes while a reply is written must not end the daemon.
    std::signal(SIGPIPE, SIG_IGN);
    const std::span<const char* const> arguments(argv + 1, static_cast<std::size_t>(argc - 1));
    auto parsed = daemon::parseOptions(arguments);
    if (std::holds_alternative<daemon::HelpRequested>(parsed)) {
        daemon::printUsage(stdout);
        return 0;
    }
    if (std::holds_alternative<daemon::VersionRequested>(parsed)) {
        daemon::printVersion(stdout);
        return 0;
    }
    if (auto* problem = std::get_if<std::string>(&parsed)) {
        std::fprintf(stderr, "halvod: %s\nTry \"halvod --help\" for the options.\n",
                     problem->c_str());
        return kExitUsage;
    }
    daemon::setLogSink(daemon::chooseLogSink());
    return serve(arguments, std::get<daemon::Options>(std::move(parsed)));
}
