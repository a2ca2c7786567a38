#include "cli/app.h"

#include "cli/command_context.h"
#include "cli/command_table.h"
#include "cli/commands.h"
#include "cli/exit_status.h"
#include "cli/usage.h"

#include <cstdio>
#include <cstdlib>

namespace halvo::cli {

namespace {

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

void installCallbacks(CommandContext& context) {
    if (const CallbackInstaller install = context.invocation.command->install) {
        install(context);
        return;
    }
    std::fputs("Error: not implemented.\n", stderr);
    std::exit(exitStatus::usageError);
}

} // namespace

int run(int argc, char** argv) {
    setProgramName(argc, argv);
    CommandContext context;
    context.invocation = readCommandLine(argc, argv);
    // A bad rule file ends the run before the daemon is contacted.
    if (context.invocation.ruleSource) {
        context.slots->ruleSet = prepareRuleSet(*context.invocation.ruleSource);
    }
    if (context.invocation.errorAfterRuleSource) {
        usageError(*context.invocation.errorAfterRuleSource);
    }

    auto logger = link::makeSystemLogger("com.talvenor.usb.phys.ctl", "IPCClient");
    context.client = link::QVHalvoIPCClient::initWithLogger(logger);
    if (!context.client) {
        std::fputs("cannot connect to the daemon\n", stderr);
        std::exit(exitStatus::noClient);
    }
    context.client->setOnError([] { std::exit(exitStatus::failure); });
    installCallbacks(context);
    context.client->start();

    // The event loop runs here, on the main thread, and every callback runs
    // inside it, one at a time: so the callbacks need no locks, and their
    // exit() ends the process from the only thread there is, with standard
    // output flushed by exit() itself.
    context.client->runEventLoop();

    context.client->stop();
    return exitStatus::success;
}

} // namespace halvo::cli
