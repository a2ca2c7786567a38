// Whole files read into memory: fixtures, rules files and sysfs attributes.
#pragma once

#include "util/expected.h"

#include <boost/json/object.hpp>
#include <cstddef>
#include <cstdio>
#include <string>

namespace halvo::util {

// The file's top-level JSON object, or why there is none ("PATH: reason").
Expected<boost::json::object> readJsonObjectFile(const std::string& path);

// Files larger than this are refused rather than read (a device such as
// /dev/zero never ends).
inline constexpr std::size_t kMaxWholeFileSize = 256u * 1024u * 1024u;

// The whole file as bytes, or why it cannot be read ("PATH: reason",
// "PATH: larger than 256 MiB").
Expected<std::string> readWholeFile(const std::string& path);

// The same for an open stream, read to its end, `name` standing for its path
// in the reason.
Expected<std::string> readWholeStream(std::FILE* stream, const std::string& name);

} // namespace halvo::util
