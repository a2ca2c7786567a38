#include "util/json_fields.h"

#include <cmath>

namespace halvo::util {

namespace json = boost::json;

const json::value* findKey(const json::object& object, std::string_view key) {
    return object.if_contains(key);
}

bool isNumber(const json::value& value) {
    return value.is_int64() || value.is_uint64() || value.is_double();
}

bool isFlag(const json::value& value) {
    return value.is_bool() || isNumber(value);
}

namespace {

std::uint32_t wrapDouble(double number) {
    if (!std::isfinite(number)) {
        return 0;
    }
    constexpr double modulus = 4294967296.0;
    double wrapped = std::fmod(std::trunc(number), modulus);
    if (wrapped < 0) {
        wrapped += modulus;
    }
    return static_cast<std::uint32_t>(wrapped);
}

} // namespace

std::uint32_t toU32(const json::value& value) {
    switch (value.kind()) {
    case json::kind::int64:
        return static_cast<std::uint32_t>(static_cast<std::uint64_t>(value.get_int64()));
    case json::kind::uint64:
        return static_cast<std::uint32_t>(value.get_uint64());
    case json::kind::double_:
        return wrapDouble(value.get_double());
    default:
        return 0;
    }
}

bool toFlag(const json::value& value) {
    switch (value.kind()) {
    case json::kind::bool_:
        return value.get_bool();
    case json::kind::int64:
        return value.get_int64() != 0;
    case json::kind::uint64:
        return value.get_uint64() != 0;
    case json::kind::double_:
        return value.get_double() != 0.0;
    default:
        return false;
    }
}

std::optional<std::string_view> getString(const json::object& object, std::string_view key) {
    const json::value* value = findKey(object, key);
    if (value == nullptr || !value->is_string()) {
        return std::nullopt;
    }
    const json::string& text = value->get_string();
    return std::string_view(text.data(), text.size());
}

std::optional<std::uint32_t> getU32(const json::object& object, std::string_view key) {
    const json::value* value = findKey(object, key);
    if (value == nullptr || !isNumber(*value)) {
        return std::nullopt;
    }
    return toU32(*value);
}

std::optional<std::uint16_t> getU16(const json::object& object, std::string_view key) {
    auto number = getU32(object, key);
    if (!number) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(*number);
}

std::optional<bool> getFlag(const json::object& object, std::string_view key) {
    const json::value* value = findKey(object, key);
    if (value == nullptr || !isFlag(*value)) {
        return std::nullopt;
    }
    return toFlag(*value);
}

const json::array* getArray(const json::object& object, std::string_view key) {
    const json::value* value = findKey(object, key);
    return value != nullptr ? value->if_array() : nullptr;
}

const json::object* getObject(const json::object& object, std::string_view key) {
    const json::value* value = findKey(object, key);
    return value != nullptr ? value->if_object() : nullptr;
}

} // namespace halvo::util
