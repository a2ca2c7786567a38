#include "daemon/service/options.h"

#include "daemon/platform/system_devices.h"

#include <algorithm>
#include <array>
#include <boost/program_options/options_description.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/variables_map.hpp>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <vector>

#ifndef HALVO_VERSION
#error "the build names the project's version"
#endif

namespace halvo::daemon {

namespace asio = boost::asio;
namespace po = boost::program_options;

namespace {

constexpr std::uint64_t kMaxRescanMs = 3600000;
constexpr std::uint64_t kMaxLimit = 1u << 30;

template <typename Number>
std::optional<Number> parseDecimal(std::string_view text, Number min, Number max) {
    Number number = 0;
    auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number, 10);
    if (text.empty() || error != std::errc() || rest != text.data() + text.size() || number < min ||
        number > max) {
        return std::nullopt;
    }
    return number;
}

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

// Applies one option's value; what is wrong with it, without the option's
// name, when it is refused.
using Setter = util::Expected<void> (*)(Options& options, std::string_view value);

struct KnownOption {
    const char* name;
    // Empty for a switch, which takes no value on the command line and
    // true or false in the config file.
    const char* valueName;
    const char* help;
    Setter apply;
};

util::Expected<void> setEndpoint(asio::ip::tcp::endpoint& into, std::string_view value) {
    auto endpoint = parseEndpoint(value);
    if (!endpoint) {
        return util::Failure{endpoint.error()};
    }
    into = *endpoint;
    return {};
}

util::Expected<void> setSwitch(bool& into, std::string_view value) {
    if (value == "true" || value == "yes" || value == "1") {
        into = true;
    } else if (value == "false" || value == "no" || value == "0") {
        into = false;
    } else {
        return util::Failure{"wants true or false, not " + quoted(value)};
    }
    return {};
}

util::Expected<void> setDefault(Options& options, std::string_view value) {
    auto action = parseAction(value);
    if (!action) {
        return util::Failure{"wants share or block, not " + quoted(value)};
    }
    options.defaultAction = *action;
    return {};
}

util::Expected<void> setRescan(Options& options, std::string_view value) {
    auto ms = parseDecimal<std::uint64_t>(value, 1, kMaxRescanMs);
    if (!ms) {
        return util::Failure{"wants a number of milliseconds from 1 to " +
                             std::to_string(kMaxRescanMs) + ", not " + quoted(value)};
    }
    options.rescanPeriod = std::chrono::milliseconds(*ms);
    return {};
}

// Sets a whole number of `Unit`s, from 1 to kMaxLimit, into `Field`.
template <auto Field, std::uint64_t Unit>
util::Expected<void> setLimit(Options& options, std::string_view value) {
    auto number = parseDecimal<std::uint64_t>(value, 1, kMaxLimit);
    if (!number) {
        return util::Failure{"wants a whole number from 1 to " + std::to_string(kMaxLimit) +
                             ", not " + quoted(value)};
    }
    options.limits.*Field = static_cast<std::size_t>(*number * Unit);
    return {};
}

// Sets a number of seconds, from 1 to kMaxLimit, into `Field`.
template <auto Field> util::Expected<void> setSeconds(Options& options, std::string_view value) {
    auto seconds = parseDecimal<std::uint64_t>(value, 1, kMaxLimit);
    if (!seconds) {
        return util::Failure{"wants a number of seconds from 1 to " + std::to_string(kMaxLimit) +
                             ", not " + quoted(value)};
    }
    options.limits.*Field = std::chrono::seconds(*seconds);
    return {};
}

// An address that is off unless given.
template <std::optional<asio::ip::tcp::endpoint> Options::*Field>
util::Expected<void> setOptionalEndpoint(Options& options, std::string_view value) {
    asio::ip::tcp::endpoint endpoint;
    auto set = setEndpoint(endpoint, value);
    if (set) {
        options.*Field = endpoint;
    }
    return set;
}

template <std::string Options::*Field>
util::Expected<void> setText(Options& options, std::string_view value) {
    options.*Field = std::string(value);
    return {};
}

// Sets a whole number (of the unit that `wanted` names) from `min` to `max`.
template <typename Field>
util::Expected<void> setBounded(Field& into, std::string_view value, std::uint64_t min,
                                std::uint64_t max, const char* wanted) {
    auto number = parseDecimal<std::uint64_t>(value, min, max);
    if (!number) {
        return util::Failure{"wants " + std::string(wanted) + " from " + std::to_string(min) +
                             " to " + std::to_string(max) + ", not " + quoted(value)};
    }
    into = Field(*number);
    return {};
}

// A switch that keeps the rules in memory: the bool is only a stage.
util::Expected<void> setRulesInMemory(Options& options, std::string_view value) {
    bool inMemory = false;
    if (auto set = setSwitch(inMemory, value); !set) {
        return set;
    }
    if (inMemory) {
        options.rulesPath.reset();
    }
    return {};
}

// The options in the order of the help text; "config" is read first.
constexpr auto kOptions = std::to_array<KnownOption>({
    {"config", "PATH", "config file (default /etc/halvo/halvod.conf)",
     [](Options& o, std::string_view v) -> util::Expected<void> {
         o.configPath = v;
         return {};
     }},
    {"listen", "ADDR:PORT", "address to serve (default 127.0.0.1:32999)",
     [](Options& o, std::string_view v) { return setEndpoint(o.listen, v); }},
    {"allow-remote", "", "allow an address other than loopback",
     [](Options& o, std::string_view v) { return setSwitch(o.allowRemote, v); }},
    {"share-listen", "ADDR:PORT", "share devices over USB/IP there (default: off; no encryption)",
     setOptionalEndpoint<&Options::shareListen>},
    {"share-tls-listen", "ADDR:PORT", "share devices over USB/IP in TLS there (default: off)",
     setOptionalEndpoint<&Options::shareTlsListen>},
    {"tls-cert", "FILE", "the TLS port's certificate chain (PEM)", setText<&Options::tlsCert>},
    {"tls-key", "FILE", "its private key (PEM)", setText<&Options::tlsKey>},
    {"tls-client-ca", "FILE", "CA certificates that hosts' certificates must chain to",
     setText<&Options::tlsClientCa>},
    {"share-max-per-host", "N", "USB/IP connections of one host at once (default 8)",
     [](Options& o, std::string_view v) {
         return setBounded(o.sharing.maxPerHost, v, 1, kMaxLimit, "a whole number");
     }},
    {"share-max-hosts", "N", "USB/IP hosts served at once (default 64)",
     [](Options& o, std::string_view v) {
         return setBounded(o.sharing.maxHosts, v, 1, kMaxLimit, "a whole number");
     }},
    {"share-timeout-ms", "N", "time for a USB/IP request and reply (default 10000)",
     [](Options& o, std::string_view v) {
         return setBounded(o.sharing.requestTimeout, v, 1, 3600000, "a number of milliseconds");
     }},
    {"share-dead-peer-seconds", "N", "silence that ends a USB/IP share (default 30)",
     [](Options& o, std::string_view v) {
         return setBounded(o.sharing.deadPeerAfter, v, 6, 3600, "a number of seconds");
     }},
    {"sysfs", "DIR", "sysfs devices (default /sys/bus/usb/devices)",
     [](Options& o, std::string_view v) -> util::Expected<void> {
         o.sysfsRoot = v;
         return {};
     }},
    {"devices", "FILE", "USB devices from a JSON fixture instead",
     [](Options& o, std::string_view v) -> util::Expected<void> {
         o.deviceFixture = std::string(v);
         return {};
     }},
    {"connections", "FILE", "connections from a JSON fixture",
     [](Options& o, std::string_view v) -> util::Expected<void> {
         o.connectionFixture = std::string(v);
         return {};
     }},
    {"rules", "PATH", "rules file (default /var/lib/halvo/halvod.rules)",
     [](Options& o, std::string_view v) -> util::Expected<void> {
         o.rulesPath = std::string(v);
         return {};
     }},
    {"rules-in-memory", "", "keep committed rules in memory only", setRulesInMemory},
    {"default", "ACTION", "share or block when no rule matches (default block)", setDefault},
    {"rescan-ms", "N", "rescan period where no uevents come (default 1000)", setRescan},
    {"admin-group", "NAME", "who may change what is shared (default halvo)",
     [](Options& o, std::string_view v) -> util::Expected<void> {
         o.adminGroup = std::string(v);
         return {};
     }},
    {"max-clients", "N", "clients served at once (default 4096)",
     setLimit<&ClientLimits::maxClients, 1>},
    {"max-clients-per-user", "N", "clients of one user at once (default 64)",
     setLimit<&ClientLimits::maxClientsPerUser, 1>},
    {"reserved-clients", "N", "places only administrators take (default 64)",
     setLimit<&ClientLimits::reservedClients, 1>},
    {"memory-budget-mib", "N", "unsent and unread bytes of all clients (default 128)",
     setLimit<&ClientLimits::memoryBudget, kMiB>},
    {"max-unread-mib", "N", "unread output that drops a client (default 128)",
     setLimit<&ClientLimits::maxUnreadBytes, kMiB>},
    {"max-parse-mib", "N", "memory one parsed request may take (default 512)",
     setLimit<&ClientLimits::maxParseBytes, kMiB>},
    {"first-request-seconds", "N", "silence that lets a new client make room (default 5)",
     setSeconds<&ClientLimits::firstRequestAfter>},
    {"idle-seconds", "N", "idle time that lets a client make room (default 600)",
     setSeconds<&ClientLimits::idleAfter>},
    {"payload-timeout-seconds", "N", "time a request's payload may take to arrive (default 30)",
     setSeconds<&ClientLimits::payloadTimeout>},
    {"max-transaction-mib", "N", "memory of all open rule transactions (default 256)",
     setLimit<&ClientLimits::transactionBytes, kMiB>},
    {"max-transactions-per-user", "N", "open rule transactions of one user (default 8)",
     setLimit<&ClientLimits::transactionsPerUser, 1>},
    {"version", "", "print the version and exit", nullptr},
});

bool isSwitch(const KnownOption& option) {
    return *option.valueName == '\0';
}

// The options as the command line takes them (with --help), or as the
// config file does (values only, no help or version).
po::options_description describe(bool commandLine) {
    po::options_description described("options");
    for (const KnownOption& option : kOptions) {
        // The config file names no other config file, and asks for no version.
        if (!commandLine &&
            (option.apply == nullptr || option.name == std::string_view("config"))) {
            continue;
        }
        if (isSwitch(option) && commandLine) {
            described.add_options()(option.name, po::bool_switch(), option.help);
        } else {
            described.add_options()(
                option.name, po::value<std::string>()->value_name(option.valueName), option.help);
        }
    }
    if (commandLine) {
        described.add_options()("help,h", po::bool_switch(), "this text");
    }
    return described;
}

// The library's complaint in the daemon's words.
std::string describeError(const po::error& error, std::string_view prefix) {
    const std::string name = [&] {
        if (const auto* named = dynamic_cast<const po::error_with_option_name*>(&error)) {
            return named->get_option_name();
        }
        return std::string();
    }();
    if (dynamic_cast<const po::unknown_option*>(&error) != nullptr) {
        return std::string(prefix) + "unknown option " + quoted(name);
    }
    if (const auto* syntax = dynamic_cast<const po::invalid_command_line_syntax*>(&error)) {
        if (syntax->kind() == po::invalid_syntax::missing_parameter) {
            return std::string(prefix) + name + " needs a value";
        }
        if (syntax->kind() == po::invalid_syntax::extra_parameter) {
            return std::string(prefix) + name + " takes no value";
        }
    }
    if (const auto* line = dynamic_cast<const po::invalid_config_file_syntax*>(&error)) {
        return std::string(prefix) + quoted(line->tokens()) + " is no \"name = value\" line";
    }
    if (dynamic_cast<const po::multiple_occurrences*>(&error) != nullptr) {
        return std::string(prefix) + name + " is given more than once";
    }
    return std::string(prefix) + error.what();
}

// Applies what `given` holds, in table order; the first problem, named as
// `dashes` + option name.
util::Expected<void> apply(const po::variables_map& given, std::string_view dashes,
                           Options& options, bool& sysfsGiven) {
    for (const KnownOption& option : kOptions) {
        auto found = given.find(option.name);
        if (option.apply == nullptr || found == given.end()) {
            continue;
        }
        std::string value;
        if (const bool* flag = boost::any_cast<bool>(&found->second.value())) {
            if (!*flag) {
                continue;
            }
            value = "true";
        } else {
            value = found->second.as<std::string>();
        }
        if (auto applied = option.apply(options, value); !applied) {
            return util::Failure{std::string(dashes) + option.name + " " + applied.error()};
        }
        sysfsGiven = sysfsGiven || std::string_view(option.name) == "sysfs";
    }
    return {};
}

// The config file's settings, or what is wrong; a missing file that nobody
// named is an empty one.
util::Expected<po::variables_map> readConfig(const std::string& path, bool named) {
    po::variables_map settings;
    std::ifstream file(path);
    if (!file) {
        if (!named && errno == ENOENT) {
            return settings;
        }
        return util::Failure{"cannot read the config file " + path + ": " + std::strerror(errno)};
    }
    try {
        po::store(po::parse_config_file(file, describe(false)), settings);
    } catch (const po::error& error) {
        return util::Failure{describeError(error, path + ": ")};
    }
    return settings;
}

util::Expected<void> checkCombination(const Options& options, bool sysfsGiven) {
    if (sysfsGiven && options.deviceFixture) {
        return util::Failure{"--sysfs and --devices exclude each other"};
    }
    if (options.shareTlsListen &&
        (options.tlsCert.empty() || options.tlsKey.empty() || options.tlsClientCa.empty())) {
        return util::Failure{"--share-tls-listen needs --tls-cert, --tls-key and --tls-client-ca"};
    }
    if (!options.allowRemote && !options.listen.address().is_loopback()) {
        return util::Failure{
            "refusing to listen on " + options.listen.address().to_string() +
            ": the protocol has no authentication (add --allow-remote to do it anyway)"};
    }
    return {};
}

} // namespace

util::Expected<asio::ip::tcp::endpoint> parseEndpoint(std::string_view text) {
    const std::string kWanted = "wants an IP address and a port, as 127.0.0.1:32999";
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) {
        return util::Failure{kWanted + ", not " + quoted(text)};
    }
    std::string_view host = text.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    boost::system::error_code error;
    const asio::ip::address address = asio::ip::make_address(std::string(host), error);
    if (error) {
        return util::Failure{kWanted + "; " + quoted(host) + " is a name"};
    }
    const std::string_view port = text.substr(colon + 1);
    auto number = parseDecimal<std::uint16_t>(port, 0, 65535);
    if (!number) {
        return util::Failure{"wants a port from 0 to 65535 after the address, not " + quoted(port)};
    }
    return asio::ip::tcp::endpoint(address, *number);
}

ParsedOptions parseOptions(std::span<const char* const> arguments) {
    po::variables_map commandLine;
    try {
        po::store(
            po::command_line_parser(std::vector<std::string>(arguments.begin(), arguments.end()))
                .options(describe(true))
                .style(po::command_line_style::unix_style & ~po::command_line_style::allow_guessing)
                .run(),
            commandLine);
    } catch (const po::error& error) {
        return describeError(error, "");
    }
    if (commandLine["help"].as<bool>()) {
        return HelpRequested{};
    }
    if (commandLine["version"].as<bool>()) {
        return VersionRequested{};
    }
    if (commandLine.count("rules") != 0 && commandLine["rules-in-memory"].as<bool>()) {
        return std::string("--rules and --rules-in-memory exclude each other");
    }
    const bool configNamed = commandLine.count("config") != 0;
    const std::string configPath =
        configNamed ? commandLine["config"].as<std::string>() : kDefaultConfigPath;
    auto config = readConfig(configPath, configNamed);
    if (!config) {
        return config.error();
    }
    Options options;
    bool sysfsGiven = false;
    if (auto applied = apply(*config, configPath + ": ", options, sysfsGiven); !applied) {
        return applied.error();
    }
    if (auto applied = apply(commandLine, "--", options, sysfsGiven); !applied) {
        return applied.error();
    }
    options.configPath = configPath;
    if (auto combined = checkCombination(options, sysfsGiven); !combined) {
        return combined.error();
    }
    return options;
}

void printUsage(std::FILE* out) {
    std::string text = "usage: halvod [options]\n";
    auto line = [&text](std::string names, std::string_view help) {
        constexpr std::size_t kHelpColumn = 28;
        names.resize(std::max(names.size() + 1, kHelpColumn - 2), ' ');
        text.append("  ").append(names).append(help).append("\n");
    };
    for (const KnownOption& option : kOptions) {
        line(std::string("--") + option.name + (isSwitch(option) ? "" : " ") + option.valueName,
             option.help);
    }
    line("-h, --help", "this text");
    std::fputs(text.c_str(), out);
    std::fprintf(out, "device backends in this build: %s\n", kDeviceBackends);
}

void printVersion(std::FILE* out) {
    std::fputs("halvod " HALVO_VERSION "\n", out);
}

} // namespace halvo::daemon
