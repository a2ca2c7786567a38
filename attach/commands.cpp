#include "attach/commands.h"

#include "attach/exit_status.h"
#include "attach/importer.h"
#include "attach/persist.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <span>

namespace halvo::attach {

namespace {

struct Invocation {
    std::vector<std::string> operands;
    bool persist = false;
    bool all = false;
    bool tls = false;
    tls::Credentials files;
};

// The options that take a value, and where it goes.
constexpr std::pair<const char*, std::string tls::Credentials::*> kFileOptions[] = {
    {"--cert", &tls::Credentials::certificateFile},
    {"--key", &tls::Credentials::keyFile},
    {"--ca", &tls::Credentials::caFile},
};

using Runner = int (*)(const Invocation& invocation, Context& context);

struct CommandRow {
    const char* word;
    const char* synopsis; // after the word
    std::size_t minOperands;
    std::size_t maxOperands;
    const char* options; // the long options it takes, each "--name "
    Runner run;
};

int fail(Context& context, int status, const std::string& message) {
    context.err << "halvo-attach: " << message << '\n';
    return status;
}

util::Expected<Endpoint> serverOperand(const Invocation& invocation) {
    return parseEndpoint(invocation.operands.at(0));
}

// With --tls, the context's connector gives way to one over TLS.
util::Expected<void> chooseChannel(const Invocation& invocation, Context& context) {
    if (!invocation.tls) {
        return {};
    }
    auto connector = context.tlsConnect(invocation.files);
    if (!connector) {
        return util::Failure{connector.error()};
    }
    context.connect = std::move(connector).value();
    return {};
}

std::string hex(unsigned value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "%0*x", digits, value);
    return text;
}

int runList(const Invocation& invocation, Context& context) {
    auto server = serverOperand(invocation);
    if (!server) {
        return fail(context, kUsage, server.error());
    }
    if (auto channel = chooseChannel(invocation, context); !channel) {
        return fail(context, kLocal, channel.error());
    }
    auto listed = listDevices(*server, context.connect);
    if (!listed.value) {
        return fail(context, listed.status, listed.message);
    }
    if (listed.value->empty()) {
        context.out << server->text() << " shares no device with this host\n";
        return kOk;
    }
    context.out << "BUSID        VID:PID    SPEED       CLASS     INTERFACES\n";
    for (const usbip::DeviceRecord& device : *listed.value) {
        std::string interfaces;
        for (const auto& interface : device.interfaces) {
            interfaces += (interfaces.empty() ? "" : " ") + hex(interface.interfaceClass, 2) + "/" +
                          hex(interface.subclass, 2) + "/" + hex(interface.protocol, 2);
        }
        char line[128];
        std::snprintf(line, sizeof line, "%-12s %s:%s  %-11s %s/%s/%s  ",
                      printable(device.busId).c_str(), hex(device.vid, 4).c_str(),
                      hex(device.pid, 4).c_str(), speedName(device.speed).c_str(),
                      hex(device.deviceClass, 2).c_str(), hex(device.deviceSubClass, 2).c_str(),
                      hex(device.deviceProtocol, 2).c_str());
        context.out << line << interfaces << '\n';
    }
    return kOk;
}

int runAttach(const Invocation& invocation, Context& context) {
    Invocation split = invocation;
    if (split.operands.size() == 1) {
        // "HOST[:PORT]:BUSID", as the systemd unit's instance names it; bus
        // ids hold no colon.
        const std::string whole = split.operands.front();
        const std::size_t colon = whole.rfind(':');
        if (colon == std::string::npos || colon == 0) {
            return fail(context, kUsage, "\"" + whole + "\" is not HOST[:PORT]:BUSID");
        }
        split.operands = {whole.substr(0, colon), whole.substr(colon + 1)};
    }
    auto server = serverOperand(split);
    if (!server) {
        return fail(context, kUsage, server.error());
    }
    const std::string& busId = split.operands.at(1);
    if (auto channel = chooseChannel(invocation, context); !channel) {
        return fail(context, kLocal, channel.error());
    }
    if (invocation.persist) {
        return runPersistent(*server, busId, context.connect, invocation.tls, context.vhci,
                             context.records, context.err);
    }
    Outcome<Attached> outcome = importDevice(*server, busId, context.connect, context.vhci);
    if (!outcome.value) {
        return fail(context, outcome.status, outcome.message);
    }
    const Attached& attached = *outcome.value;
    if (auto saved =
            context.records.save({attached.port.number, server->text(), busId,
                                  deviceId(attached.device), std::time(nullptr), invocation.tls});
        !saved) {
        context.err << "halvo-attach: warning: " << saved.error() << '\n';
    }
    context.out << "attached " << busId << " from " << server->text() << " on port "
                << attached.port.number << " (" << speedName(attached.device.speed) << " speed)\n";
    return kOk;
}

int detachPort(unsigned number, Context& context) {
    if (auto done = context.vhci.detach(number); !done) {
        return fail(context, kLocal, done.error());
    }
    context.records.forget(number);
    context.out << "detached port " << number << '\n';
    return kOk;
}

int runDetach(const Invocation& invocation, Context& context) {
    if (invocation.all == !invocation.operands.empty()) {
        return fail(context, kUsage, "detach takes a port or --all");
    }
    auto ports = context.vhci.ports();
    if (!ports) {
        return fail(context, kLocal, ports.error());
    }
    if (invocation.all) {
        int status = kOk;
        for (const VhciPort& port : *ports) {
            if (port.used && detachPort(port.number, context) != kOk) {
                status = kLocal;
            }
        }
        return status;
    }
    const std::string& text = invocation.operands.front();
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return fail(context, kUsage,
                    "bad port \"" + text + "\": a number (see halvo-attach status)");
    }
    for (const VhciPort& port : *ports) {
        if (port.number == number) {
            return port.used ? detachPort(number, context)
                             : fail(context, kLocal, "port " + text + " holds no device");
        }
    }
    return fail(context, kLocal, "vhci-hcd has no port " + text);
}

int runStatus(const Invocation&, Context& context) {
    auto ports = context.vhci.ports();
    if (!ports) {
        return fail(context, kLocal, ports.error());
    }
    context.out << statusTable(*ports, context.records);
    return kOk;
}

constexpr CommandRow kCommands[] = {
    {"list", "[TLS] HOST[:PORT]", 1, 1, "--tls --cert --key --ca ", runList},
    {"attach", "[--persist] [TLS] HOST[:PORT] BUSID | HOST[:PORT]:BUSID", 1, 2,
     "--persist --tls --cert --key --ca ", runAttach},
    {"detach", "PORT|--all", 0, 1, "--all ", runDetach},
    {"status", "", 0, 0, "", runStatus},
};

} // namespace

std::string usageText() {
    std::string text;
    for (const CommandRow& row : kCommands) {
        text += std::string(text.empty() ? "Usage: " : "       ") + "halvo-attach " + row.word +
                (*row.synopsis != '\0' ? " " : "") + row.synopsis + "\n";
    }
    return text + "       halvo-attach --help | --version\n"
                  "TLS: --tls --cert FILE --key FILE --ca FILE\n";
}

int runCommandLine(const std::vector<std::string>& arguments, Context& context) {
    if (arguments.empty()) {
        context.err << usageText();
        return kUsage;
    }
    const std::string& word = arguments.front();
    if (word == "-h" || word == "--help") {
        context.out << usageText();
        return kOk;
    }
    if (word == "-V" || word == "--version") {
        context.out << "halvo-attach " << HALVO_VERSION << '\n';
        return kOk;
    }
    for (const CommandRow& row : kCommands) {
        if (word != row.word) {
            continue;
        }
        Invocation invocation;
        for (std::size_t index = 1; index < arguments.size(); ++index) {
            const std::string& argument = arguments[index];
            const bool isOption = argument.size() > 1 && argument[0] == '-';
            if (isOption && std::string(row.options).find(argument + " ") == std::string::npos) {
                return fail(context, kUsage, word + ": unknown option " + argument);
            }
            const auto* file =
                std::find_if(std::begin(kFileOptions), std::end(kFileOptions),
                             [&](const auto& option) { return argument == option.first; });
            if (file != std::end(kFileOptions)) {
                if (++index == arguments.size()) {
                    return fail(context, kUsage, argument + " needs a file");
                }
                invocation.files.*(file->second) = arguments[index];
            } else if (argument == "--tls") {
                invocation.tls = true;
            } else if (argument == "--persist") {
                invocation.persist = true;
            } else if (argument == "--all") {
                invocation.all = true;
            } else {
                invocation.operands.push_back(argument);
            }
        }
        const tls::Credentials& files = invocation.files;
        const bool anyFile =
            !files.certificateFile.empty() || !files.keyFile.empty() || !files.caFile.empty();
        const bool allFiles =
            !files.certificateFile.empty() && !files.keyFile.empty() && !files.caFile.empty();
        if (invocation.tls ? !allFiles : anyFile) {
            return fail(context, kUsage, "--tls goes with --cert, --key and --ca, all three");
        }
        if (invocation.operands.size() < row.minOperands ||
            invocation.operands.size() > row.maxOperands) {
            return fail(context, kUsage,
                        std::string("usage: halvo-attach ") + row.word + " " + row.synopsis);
        }
        return row.run(invocation, context);
    }
    return fail(context, kUsage, "unknown command \"" + word + "\" (see halvo-attach --help)");
}

} // namespace halvo::attach
