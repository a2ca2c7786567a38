// Typed lookups in the daemon's JSON objects.
//
// Every consumer of a reply (listings, status checks, the monitor, the rule
// printer) reads keys through these, so that the JSON type rules are the same
// everywhere:
//   - a string is only a JSON string;
//   - a number is a JSON integer or fraction, never a boolean;
//   - a flag is a boolean or a number (non-zero is true);
//   - a value of another type counts as absent.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string_view>

namespace halvo::util {

const boost::json::value* findKey(const boost::json::object& object, std::string_view key);

bool isNumber(const boost::json::value& value);
bool isFlag(const boost::json::value& value);

// Number conversion as an unsigned integer of the C library's kind: integers
// wrap modulo 2^32 (-1 reads 4294967295), fractions truncate toward zero
// first. Non-numbers give 0.
std::uint32_t toU32(const boost::json::value& value);

// Truth value of a flag: a boolean as it is, a number when non-zero.
bool toFlag(const boost::json::value& value);

std::optional<std::string_view> getString(const boost::json::object& object, std::string_view key);
std::optional<std::uint32_t> getU32(const boost::json::object& object, std::string_view key);
std::optional<std::uint16_t> getU16(const boost::json::object& object, std::string_view key);
std::optional<bool> getFlag(const boost::json::object& object, std::string_view key);
const boost::json::array* getArray(const boost::json::object& object, std::string_view key);
const boost::json::object* getObject(const boost::json::object& object, std::string_view key);

} // namespace halvo::util
