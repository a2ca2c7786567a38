// The utility's run: read the command line, prepare, connect, and let the
// command's callbacks end the process.
#pragma once

namespace halvo::cli {

int run(int argc, char** argv);

} // namespace halvo::cli
