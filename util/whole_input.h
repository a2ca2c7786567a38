// The whole of a file named on the command line, or of standard input, read
// before anything is made of it.
#pragma once

#include <optional>
#include <string>

namespace halvo::util {

// The whole content of the file at `path`, or of standard input when `path`
// is null, as raw bytes (possibly empty; nothing is decoded).  On failure
// prints "Error loading <label> from stdin.\n" or
// "Error loading <label> from <path>.\n" to stderr and returns nothing.  A
// directory, an unreadable file and a path that is not valid UTF-8 all fail.
std::optional<std::string> load_any_file(const char* path, const char* label);

} // namespace halvo::util
