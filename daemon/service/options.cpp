#include "daemon/service/options.h"

#include "daemon/platform/system_devices.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace halvo::daemon {

namespace asio = boost::asio;

namespace {

constexpr std::uint64_t kMaxRescanMs = 3600000;

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

// Applies one option's value; the problem when the value is refused.
using Setter = std::optional<std::string> (*)(Options& options, std::string_view value);

struct KnownOption {
    std::string_view name;
    bool takesValue;
    Setter apply;
};

std::optional<std::string> setListen(Options& options, std::string_view value) {
    auto endpoint = parseEndpoint(value);
    if (!endpoint) {
        return "--listen wants ADDR:PORT, not \"" + std::string(value) + "\"";
    }
    options.listen = *endpoint;
    return std::nullopt;
}

std::optional<std::string> setShareListen(Options& options, std::string_view value) {
    auto endpoint = parseEndpoint(value);
    if (!endpoint) {
        return "--share-listen wants ADDR:PORT, not \"" + std::string(value) + "\"";
    }
    options.shareListen = *endpoint;
    return std::nullopt;
}

std::optional<std::string> setDefault(Options& options, std::string_view value) {
    auto action = parseAction(value);
    if (!action) {
        return std::string("--default wants share or block");
    }
    options.defaultAction = *action;
    return std::nullopt;
}

std::optional<std::string> setRescan(Options& options, std::string_view value) {
    auto ms = parseDecimal<std::uint64_t>(value, 1, kMaxRescanMs);
    if (!ms) {
        return "--rescan-ms wants a number of milliseconds from 1 to " +
               std::to_string(kMaxRescanMs);
    }
    options.rescanPeriod = std::chrono::milliseconds(*ms);
    return std::nullopt;
}

constexpr std::uint64_t kMaxLimit = 1u << 30;

// Sets a whole number of `Unit`s, from 1 to kMaxLimit, into `Field`.
template <auto Field, std::uint64_t Unit>
std::optional<std::string> setLimit(Options& options, std::string_view value) {
    auto number = parseDecimal<std::uint64_t>(value, 1, kMaxLimit);
    if (!number) {
        return "wants a whole number from 1 to " + std::to_string(kMaxLimit) + ", not \"" +
               std::string(value) + "\"";
    }
    options.limits.*Field = static_cast<std::size_t>(*number * Unit);
    return std::nullopt;
}

std::optional<std::string> setIdle(Options& options, std::string_view value) {
    auto seconds = parseDecimal<std::uint64_t>(value, 1, kMaxLimit);
    if (!seconds) {
        return "wants a number of seconds from 1 to " + std::to_string(kMaxLimit);
    }
    options.limits.idleAfter = std::chrono::seconds(*seconds);
    return std::nullopt;
}

constexpr std::array<KnownOption, 16> kOptions = {{
    {"--listen", true, setListen},
    {"--share-listen", true, setShareListen},
    {"--allow-remote", false,
     [](Options& o, std::string_view) -> std::optional<std::string> {
         o.allowRemote = true;
         return std::nullopt;
     }},
    {"--sysfs", true,
     [](Options& o, std::string_view v) -> std::optional<std::string> {
         o.sysfsRoot = v;
         return std::nullopt;
     }},
    {"--devices", true,
     [](Options& o, std::string_view v) -> std::optional<std::string> {
         o.deviceFixture = std::string(v);
         return std::nullopt;
     }},
    {"--connections", true,
     [](Options& o, std::string_view v) -> std::optional<std::string> {
         o.connectionFixture = std::string(v);
         return std::nullopt;
     }},
    {"--rules", true,
     [](Options& o, std::string_view v) -> std::optional<std::string> {
         o.rulesPath = std::string(v);
         return std::nullopt;
     }},
    {"--default", true, setDefault},
    {"--rescan-ms", true, setRescan},
    {"--admin-group", true,
     [](Options& o, std::string_view v) -> std::optional<std::string> {
         o.adminGroup = std::string(v);
         return std::nullopt;
     }},
    {"--max-clients", true, setLimit<&ClientLimits::maxClients, 1>},
    {"--max-clients-per-user", true, setLimit<&ClientLimits::maxClientsPerUser, 1>},
    {"--memory-budget-mib", true, setLimit<&ClientLimits::memoryBudget, kMiB>},
    {"--max-unread-mib", true, setLimit<&ClientLimits::maxUnreadBytes, kMiB>},
    {"--max-parse-mib", true, setLimit<&ClientLimits::maxParseBytes, kMiB>},
    {"--idle-seconds", true, setIdle},
}};

} // namespace

std::optional<asio::ip::tcp::endpoint> parseEndpoint(std::string_view text) {
    std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view host = text.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    auto port = parseDecimal<std::uint16_t>(text.substr(colon + 1), 0, 65535);
    boost::system::error_code error;
    asio::ip::address address = asio::ip::make_address(std::string(host), error);
    if (!port || error) {
        return std::nullopt;
    }
    return asio::ip::tcp::endpoint(address, *port);
}

std::variant<Options, HelpRequested, std::string>
parseOptions(std::span<const char* const> arguments) {
    Options options;
    bool sysfsGiven = false;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        std::string_view argument = arguments[index];
        if (argument == "-h" || argument == "--help") {
            return HelpRequested{};
        }
        std::string_view name = argument.substr(0, argument.find('='));
        auto option = std::find_if(kOptions.begin(), kOptions.end(),
                                   [&](const KnownOption& known) { return known.name == name; });
        if (option == kOptions.end()) {
            return "unknown option \"" + std::string(argument) + "\"";
        }
        std::string_view value;
        if (name.size() < argument.size()) {
            if (!option->takesValue) {
                return std::string(name) + " takes no value";
            }
            value = argument.substr(name.size() + 1);
        } else if (option->takesValue) {
            if (index + 1 == arguments.size()) {
                return std::string(name) + " needs a value";
            }
            value = arguments[++index];
        }
        if (auto problem = option->apply(options, value)) {
            return problem->starts_with("--") ? *problem : std::string(name) + " " + *problem;
        }
        sysfsGiven = sysfsGiven || name == "--sysfs";
    }
    if (sysfsGiven && options.deviceFixture) {
        return std::string("--sysfs and --devices exclude each other");
    }
    if (!options.allowRemote && !options.listen.address().is_loopback()) {
        return "refusing to listen on " + options.listen.address().to_string() +
               ": the protocol has no authentication (add --allow-remote to do it anyway)";
    }
    return options;
}

void printUsage(std::FILE* out) {
    std::fputs(
        "usage: halvod [options]\n"
        "  --listen ADDR:PORT   address to serve (default 127.0.0.1:32999; port 0: any free one)\n"
        "  --allow-remote       allow an address other than loopback\n"
        "  --share-listen ADDR:PORT  share devices over USB/IP there (off by default;\n"
        "                       3240 is customary; no encryption: trusted networks only)\n"
        "  --sysfs DIR          USB devices from this sysfs folder (default /sys/bus/usb/devices)\n"
        "  --devices FILE       USB devices from a JSON fixture instead\n"
        "  --connections FILE   connections from a JSON fixture\n"
        "  --rules PATH         rules file, read at start and written on commit\n"
        "                       (without it, committed rules live in memory only)\n"
        "  --default ACTION     share or block when no rule matches (default block)\n"
        "  --rescan-ms N        sysfs rescan period for hot-plug (default 1000)\n"
        "  --admin-group NAME   group whose members may change what is shared (default halvo)\n"
        "  --max-clients N      clients served at once (default 4096)\n"
        "  --max-clients-per-user N  clients of one user at once (default 1024)\n"
        "  --memory-budget-mib N     unsent output and unread payloads of all clients (default "
        "128)\n"
        "  --max-unread-mib N   unread output after which a client is dropped (default 128)\n"
        "  --max-parse-mib N    memory one request may take once parsed (default 512)\n"
        "  --idle-seconds N     idle time after which a client may make room (default 600)\n"
        "  -h, --help           this text\n",
        out);
    std::fprintf(out, "device backends in this build: %s\n", kDeviceBackends);
}

} // namespace halvo::daemon
