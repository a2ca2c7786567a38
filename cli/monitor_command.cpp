#include "cli/commands.h"
#include "cli/event_printer.h"

#include <cstdio>

namespace halvo::cli {

void installMonitor(CommandContext& context) {
    context.onData([](link::QVHalvoIPCClient&, std::uint32_t code,
                      const boost::json::object& event) { printEvent(code, event, stdout); });
}

} // namespace halvo::cli
