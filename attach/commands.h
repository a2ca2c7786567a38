// halvo-attach's commands, one row each in a static table that drives both
// reading the command line and dispatching: the command's word, its
// operands, the options it takes and the function that runs it.
#pragma once

#include "attach/channel.h"
#include "attach/records.h"
#include "attach/vhci.h"
#include "tls/context.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace halvo::attach {

// What a command works with: the machine's (or a test's) vhci, records and
// way to reach servers, and where it writes.
struct Context {
    VhciPorts& vhci;
    Records& records;
    Connector connect;
    std::ostream& out;
    std::ostream& err;
    // The connector for --tls with its files; why not when they are unusable.
    std::function<util::Expected<Connector>(const tls::Credentials&)> tlsConnect;
};

// Reads the arguments (without the program name) and runs the command;
// returns the exit status.
int runCommandLine(const std::vector<std::string>& arguments, Context& context);

std::string usageText();

} // namespace halvo::attach
