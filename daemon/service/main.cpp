// halvod: serves the USB-sharing control protocol on a loopback port.
#include "daemon/control/request_handler.h"
#include "daemon/control/server.h"
#include "daemon/core/connection_table.h"
#include "daemon/core/device_table.h"
#include "daemon/core/device_watcher.h"
#include "daemon/core/rule_store.h"
#include "daemon/platform/fixture_backend.h"
#include "daemon/platform/rules_file.h"
#include "daemon/platform/system_devices.h"
#include "daemon/service/hotplug.h"
#include "daemon/service/options.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <csignal>
#include <cstdio>
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
    std::fprintf(stderr, "halvod: %s\n", message.c_str());
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
        std::fputs("halvod: no --rules file: committed rules are kept in memory only\n", stderr);
        return boost::json::array();
    }
    // A folder that cannot take the file fails here, not at the first commit.
    if (auto problem = daemon::checkRulesFolder(*options.rulesPath)) {
        return util::Failure{*problem};
    }
    daemon::removeLeftoverTemporaries(*options.rulesPath);
    return daemon::loadRulesFile(*options.rulesPath);
}

// Every client holds a descriptor: allow as many as the system lets us.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int serve(const daemon::Options& options) {
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
    daemon::RuleStore rules(std::move(committed).value(), rulesFile ? &*rulesFile : nullptr);
    daemon::RequestHandler handler(devices, table, connections.value(), rules,
                                   options.defaultAction);

    raiseDescriptorLimit();
    asio::io_context io;
    daemon::Server server(io, handler, daemon::AccessPolicy(::geteuid(), adminGroup),
                          options.limits);
    if (auto error = server.listen(options.listen)) {
        return fail("cannot listen on " + options.listen.address().to_string() + ":" +
                    std::to_string(options.listen.port()) + ": " + *error);
    }
    std::unique_ptr<daemon::BusMonitor> busEvents;
    if (devices.seesHotplug()) {
        busEvents = daemon::openHotplugEvents(io, options.rescanPeriod);
    }
    daemon::DeviceWatcher watcher(
        io, devices, table, busEvents.get(), options.rescanPeriod,
        [&server](const daemon::Event& event) { server.broadcast(event); });
    if (devices.seesHotplug()) {
        watcher.start();
    }
    asio::signal_set stopSignals(io, SIGINT, SIGTERM);
    stopSignals.async_wait([&](const boost::system::error_code&, int) {
        watcher.stop();
        server.stop();
        io.stop();
    });

    auto bound = server.localEndpoint();
    std::fprintf(stderr, "halvod: listening on %s:%u\n", bound.address().to_string().c_str(),
                 static_cast<unsigned>(bound.port()));
    std::fflush(stderr);
    io.run();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    // A client that vanishes while a reply is written must not end the daemon.
    std::signal(SIGPIPE, SIG_IGN);
    auto parsed = daemon::parseOptions(
        std::span<const char* const>(argv + 1, static_cast<std::size_t>(argc - 1)));
    if (std::holds_alternative<daemon::HelpRequested>(parsed)) {
        daemon::printUsage(stdout);
        return 0;
    }
    if (auto* problem = std::get_if<std::string>(&parsed)) {
        std::fprintf(stderr, "halvod: %s\n", problem->c_str());
        daemon::printUsage(stderr);
        return kExitUsage;
    }
    return serve(std::get<daemon::Options>(parsed));
}
