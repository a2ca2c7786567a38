// halvod's settings: the same options on the command line and, without the
// leading "--", as "name = value" lines of the config file.  A value on the
// command line wins over the file's.
#pragma once

#include "daemon/control/client_limits.h"
#include "daemon/core/rule_engine.h"
#include "daemon/usbip/server_settings.h"
#include "util/expected.h"

#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <variant>

namespace halvo::daemon {

inline constexpr std::uint16_t kDefaultPort = 32999;
inline constexpr const char* kDefaultSysfsRoot = "/sys/bus/usb/devices";
inline constexpr const char* kDefaultConfigPath = "/etc/halvo/halvod.conf";
inline constexpr const char* kDefaultRulesPath = "/var/lib/halvo/halvod.rules";

struct Options {
    // The config file read; a missing default file is no error.
    std::string configPath = kDefaultConfigPath;
    // Loopback only unless allowRemote: the protocol has no authentication.
    boost::asio::ip::tcp::endpoint listen{boost::asio::ip::address_v4::loopback(), kDefaultPort};
    bool allowRemote = false;
    // Where remote hosts import devices over USB/IP; none: no sharing.  Any
    // address: serving remote hosts is its purpose.
    std::optional<boost::asio::ip::tcp::endpoint> shareListen;
    // The same over TLS: only hosts whose certificate chains to
    // tlsClientCa, which this end proves itself to with tlsCert and tlsKey.
    std::optional<boost::asio::ip::tcp::endpoint> shareTlsListen;
    std::string tlsCert;
    std::string tlsKey;
    std::string tlsClientCa;
    usbip::ServerSettings sharing;
    std::string sysfsRoot = kDefaultSysfsRoot;
    // Devices from this fixture instead of sysfs.
    std::optional<std::string> deviceFixture;
    std::optional<std::string> connectionFixture;
    // Where committed rules are kept; none (--rules-in-memory) keeps them in
    // memory only.
    std::optional<std::string> rulesPath = std::string(kDefaultRulesPath);
    Action defaultAction = Action::block;
    std::chrono::milliseconds rescanPeriod{1000};
    // Members of this group may change what is shared (besides root and the
    // daemon's own user).
    std::string adminGroup = "halvo";
    ClientLimits limits;
};

struct HelpRequested {};
struct VersionRequested {};

// The options, a request for help or the version, or what is wrong (one
// sentence without the program name; a problem in the config file starts
// with its path).  `arguments` excludes argv[0].
using ParsedOptions = std::variant<Options, HelpRequested, VersionRequested, std::string>;
ParsedOptions parseOptions(std::span<const char* const> arguments);

// "ADDR:PORT", "[V6ADDR]:PORT"; what is wrong with it (a phrase to follow
// the option's name) when malformed.
util::Expected<boost::asio::ip::tcp::endpoint> parseEndpoint(std::string_view text);

void printUsage(std::FILE* out);

// "halvod VERSION".
void printVersion(std::FILE* out);

} // namespace halvo::daemon
