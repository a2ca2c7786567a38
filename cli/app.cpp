#include "cli/app.h"

#include "cli/connection_commands.h"
#include "cli/device_commands.h"
#include "cli/exit_status.h"
#include "cli/monitor_command.h"
#include "cli/rule_commands.h"
#include "cli/usage.h"

#include <cstdio>
#include <cstdlib>

namespace halvo::cli {

namespace {

struct CommandHandler {
    Command command;
    void (*install)(Session&);
};

constexpr CommandHandler kHandlers[] = {
    {Command::devList, installDeviceList},      {Command::devUnplug, installDeviceUnplug},
    {Command::devShare, installDeviceRule},     {Command::devBlock, installDeviceRule},
    {Command::connList, installConnectionList}, {Command::connDrop, installConnectionDrop},
    {Command::connKill, installConnectionKill}, {Command::ruleList, installRuleList},
    {Command::ruleLoad, installRuleLoad},       {Command::ruleEdit, installRuleEdit},
    {Command::ruleTest, installRuleTest},       {Command::monitor, installMonitor},
};

[[noreturn]] void usageError(const UsageError& error) {
    if (error.message != nullptr) {
        std::fputs(error.message, stderr);
    }
    usage(exitStatus::usageError);
}

Invocation readCommandLine(int argc, char** argv) {
    ParseResult parsed = parseCommandLine(argc, argv);
    if (parsed.help) {
        usage(exitStatus::success);
    }
    if (parsed.error) {
        usageError(*parsed.error);
    }
    return *parsed.invocation;
}

void installCallbacks(Session& session) {
    for (const CommandHandler& handler : kHandlers) {
        if (handler.command == session.invocation.command) {
            handler.install(session);
            return;
        }
    }
    std::fputs("Error: not implemented.\n", stderr);
    std::exit(exitStatus::usageError);
}

} // namespace

int run(int argc, char** argv) {
    setProgramName(argc, argv);
    Session session;
    session.invocation = readCommandLine(argc, argv);
    // A bad rule file ends the run before the daemon is contacted.
    if (session.invocation.ruleSource) {
        session.slots->ruleSet = prepareRuleSet(*session.invocation.ruleSource);
    }
    if (session.invocation.errorAfterRuleSource) {
        usageError(*session.invocation.errorAfterRuleSource);
    }

    auto logger = link::makeSystemLogger("com.talvenor.usb.phys.ctl", "IPCClient");
    session.client = link::QVHalvoIPCClient::initWithLogger(logger);
    if (!session.client) {
        std::fputs("cannot connect to the daemon\n", stderr);
        std::exit(exitStatus::noClient);
    }
    session.client->setOnError([] { std::exit(exitStatus::failure); });
    installCallbacks(session);
    session.client->start();

    // The event loop runs here, on the main thread, and every callback runs
    // inside it, one at a time: so the callbacks need no locks, and their
    // exit() ends the process from the only thread there is, with standard
    // output flushed by exit() itself.
    session.client->runEventLoop();

    session.client->stop();
    return exitStatus::success;
}

} // namespace halvo::cli
