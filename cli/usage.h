// The help text and the process-wide program name it prints.
#pragma once

#include <cstdio>

namespace halvo::cli {

// Basename of argv[0], or "" for an empty argument vector.
void setProgramName(int argc, char** argv);
const char* programName();

// Writes the help text to `out`.
void printHelp(std::FILE* out);

// Prints the help text (stdout for status 0, stderr otherwise) and exits.
[[noreturn]] void usage(int status);

} // namespace halvo::cli
