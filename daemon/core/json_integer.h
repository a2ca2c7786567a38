// Strict integer lookups for what the daemon is told: fixture files and
// request payloads.  Unlike the utility's lenient lookups (util/json_fields.h),
// which wrap any number into range, these refuse fractions, negative numbers
// and values above the bound, so that a wrong value is reported rather than
// silently taken for another one.
#pragma once

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string_view>

namespace halvo::daemon {

inline constexpr std::uint64_t kMaxU8 = 0xff;
inline constexpr std::uint64_t kMaxU16 = 0xffff;
inline constexpr std::uint64_t kMaxU32 = 0xffffffff;

// The value when it is a JSON integer from 0 to `max`.
std::optional<std::uint64_t> toBoundedInteger(const boost::json::value& value, std::uint64_t max);

// The same for the value of `key`; nothing when the key is absent too.
std::optional<std::uint64_t> getBoundedInteger(const boost::json::object& object,
                                               std::string_view key, std::uint64_t max);

} // namespace halvo::daemon
