// halvod: serves the USB-sharing control protocol on a loopback port and,
// with --share-listen, shares devices with remote hosts over USB/IP.
#include "daemon/control/request_handler.h"
#include "daemon/control/server.h"
#include "daemon/core/connection_table.h"
#include "daemon/core/device_table.h"
#include "daemon/core/device_watcher.h"
#include "daemon/core/rule_store.h"
#include "daemon/platform/fixture_backend.h"
#include "daemon/platform/rules_file.h"
#include "daemon/platform/system_devices.h"
#include "daemon/service/options.h"
#include "daemon/service/sharing.h"

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

constexpr int kExitUsage = 2;
constexpr int kExitStartFailed = 1;

int fail(const std::string& message) {
    std::fprintf(stderr, "halvod: %s\n", message.c_str());
    return kExitStartFailed;
}

std::variant<std::unique_ptr<daemon::DeviceBackend>, std::string>
makeBackend(const daemon::Options& options) {
    if (!options.deviceFixture) {
        return daemon::openSystemDevices(options.sysfsRoot);
    }
    auto fixture = daemon::FixtureBackend::fromFile(*options.deviceFixture);
    if (auto* error = std::get_if<std::string>(&fixture)) {
        return *error;
    }
    return std::unique_ptr<daemon::DeviceBackend>(std::get<0>(std::move(fixture)));
}

std::variant<daemon::ConnectionTable, std::string> makeConnections(const daemon::Options& options) {
    if (!options.connectionFixture) {
        return daemon::ConnectionTable();
    }
    return daemon::ConnectionTable::fromFile(*options.connectionFixture);
}

std::variant<boost::json::array, std::string> loadCommittedRules(const daemon::Options& options) {
    if (!options.rulesPath) {
        std::fputs("halvod: no --rules file: committed rules are kept in memory only\n", stderr);
        return boost::json::array();
    }
    // A folder that cannot take the file fails here, not at the first commit.
    if (auto problem = daemon::checkRulesFolder(*options.rulesPath)) {
        return *problem;
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
    if (auto* error = std::get_if<std::string>(&backend)) {
        return fail(*error);
    }
    daemon::DeviceBackend& devices = *std::get<0>(backend);
    daemon::ScanResult scan = devices.scan();
    if (!scan.error.empty()) {
        return fail("device scan failed: " + scan.error);
    }
    daemon::DeviceTable table;
    table.update(std::move(scan.devices));

    auto connections = makeConnections(options);
    if (auto* error = std::get_if<std::string>(&connections)) {
        return fail(*error);
    }
    auto committed = loadCommittedRules(options);
    if (auto* error = std::get_if<std::string>(&committed)) {
        return fail(*error);
    }
    const std::optional<gid_t> adminGroup = daemon::findGroup(options.adminGroup);
    std::optional<daemon::RulesFile> rulesFile;
    if (options.rulesPath) {
        rulesFile.emplace(*options.rulesPath, adminGroup);
    }
    daemon::RuleStore rules(std::get<0>(std::move(committed)), rulesFile ? &*rulesFile : nullptr);
    // Before everything that holds sockets or timers, so that it outlives them.
    asio::io_context io;
    auto sharing = daemon::Sharing::create(options, table, std::get<0>(connections), rules);
    if (auto* error = std::get_if<std::string>(&sharing)) {
        return fail(*error);
    }
    daemon::Sharing& shares = *std::get<0>(sharing);
    daemon::RequestHandler handler(devices, table, std::get<0>(connections), rules, shares.shares(),
                                   options.defaultAction);

    raiseDescriptorLimit();
    daemon::Server server(io, handler, daemon::AccessPolicy(::geteuid(), adminGroup),
                          options.limits);
    if (auto error = server.listen(options.listen)) {
        return fail("cannot listen on " + options.listen.address().to_string() + ":" +
                    std::to_string(options.listen.port()) + ": " + *error);
    }
    if (auto error = shares.serve(
            io, options, [&server](const daemon::Event& event) { server.broadcast(event); })) {
        return fail(*error);
    }
    daemon::DeviceWatcher watcher(
        io, devices, table, options.rescanPeriod,
        [&server](const daemon::Event& event) { server.broadcast(event); });
    if (devices.seesHotplug()) {
        watcher.start();
    }
    asio::signal_set stopSignals(io, SIGINT, SIGTERM);
    stopSignals.async_wait([&](const boost::system::error_code&, int) {
        // Shares end first, so that clients still hear of it.
        shares.stop();
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
