// Whole files read into memory: fixtures, rules files and sysfs attributes.
#pragma once

#include <boost/json/object.hpp>
#include <string>
#include <variant>

namespace halvo::util {

// The file's top-level JSON object, or why there is none ("PATH: reason").
std::variant<boost::json::object, std::string> readJsonObjectFile(const std::string& path);

// The whole file as bytes, or why it cannot be read ("PATH: reason").
std::variant<std::string, std::string> readWholeFile(const std::string& path);

} // namespace halvo::util
