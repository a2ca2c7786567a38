#include "daemon/core/json_integer.h"

namespace halvo::daemon {

namespace json = boost::json;

std::optional<std::uint64_t> toBoundedInteger(const json::value& value, std::uint64_t max) {
    std::uint64_t number = 0;
    if (value.is_uint64()) {
        number = value.get_uint64();
    } else if (value.is_int64() && value.get_int64() >= 0) {
        number = static_cast<std::uint64_t>(value.get_int64());
    } else {
        return std::nullopt;
    }
    if (number > max) {
        return std::nullopt;
    }
    return number;
}

std::optional<std::uint64_t> getBoundedInteger(const json::object& object, std::string_view key,
                                               std::uint64_t max) {
    const json::value* value = object.if_contains(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    return toBoundedInteger(*value, max);
}

} // namespace halvo::daemon
