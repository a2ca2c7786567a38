// Reading and writing one sysfs attribute file.
#pragma once

#include "util/expected.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace halvo::daemon {

// The attribute's text without its trailing line feed and spaces; nothing
// when it cannot be read.
std::optional<std::string> readAttribute(const std::filesystem::path& folder, const char* name);

// Writes `value` in one write, as the kernel wants attribute values; the
// reason ("FILE: why") on failure.
util::Expected<void> writeAttribute(const std::filesystem::path& file, std::string_view value);

} // namespace halvo::daemon
