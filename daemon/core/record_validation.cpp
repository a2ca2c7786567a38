#include "daemon/core/record_validation.h"

#include "daemon/core/json_integer.h"
#include "daemon/core/rule_text.h"

#include <algorithm>
#include <array>

namespace halvo::daemon {

namespace json = boost::json;

namespace {

enum class ValueKind { action, text, nameMode, hostList, truth, onlyTrue, number };

struct KeyRule {
    std::string_view key;
    ValueKind kind;
    // A key that must be present too; empty when none.
    std::string_view needs;
};

constexpr std::array<KeyRule, 24> kKeyRules = {{
    {"action", ValueKind::action, ""},
    {"quick", ValueKind::onlyTrue, ""},
    {"host", ValueKind::hostList, ""},
    {"notHost", ValueKind::onlyTrue, "host"},
    {"rdesk", ValueKind::truth, ""},
    {"name", ValueKind::text, "nameMatch"},
    {"nameMatch", ValueKind::nameMode, "name"},
    {"notName", ValueKind::onlyTrue, "name"},
    {"built-in", ValueKind::truth, ""},
    {"vid", ValueKind::number, ""},
    {"pid", ValueKind::number, "vid"},
    {"rev", ValueKind::number, "pid"},
    {"notHWID", ValueKind::onlyTrue, "vid"},
    {"serial", ValueKind::text, ""},
    {"notSerial", ValueKind::onlyTrue, "serial"},
    {"port", ValueKind::text, ""},
    {"notPort", ValueKind::onlyTrue, "port"},
    {"class", ValueKind::number, ""},
    {"subclass", ValueKind::number, "class"},
    {"protocol", ValueKind::number, "subclass"},
    {"notClass", ValueKind::onlyTrue, "class"},
    {"override-name", ValueKind::text, ""},
    {"override-serial", ValueKind::text, ""},
    {"takeaway", ValueKind::truth, ""},
}};

bool isStringArray(const json::value& value) {
    return value.is_array() &&
           std::all_of(value.get_array().begin(), value.get_array().end(),
                       [](const json::value& element) { return element.is_string(); });
}

bool hasKind(const json::value& value, ValueKind kind) {
    switch (kind) {
    case ValueKind::action:
        return value == "share" || value == "block";
    case ValueKind::text:
        return value.is_string();
    case ValueKind::nameMode:
        return value == "is" || value == "contains";
    case ValueKind::hostList:
        return isStringArray(value);
    case ValueKind::truth:
        return value.is_bool();
    case ValueKind::onlyTrue:
        return value == true;
    case ValueKind::number:
        return toBoundedInteger(value, kMaxU16).has_value();
    }
    return false;
}

std::string_view describeKind(ValueKind kind) {
    switch (kind) {
    case ValueKind::action:
        return "\"share\" or \"block\"";
    case ValueKind::text:
        return "a string";
    case ValueKind::nameMode:
        return "\"is\" or \"contains\"";
    case ValueKind::hostList:
        return "an array of strings";
    case ValueKind::truth:
        return "true or false";
    case ValueKind::onlyTrue:
        return "true";
    case ValueKind::number:
        return "an integer from 0 to 65535";
    }
    return "";
}

std::string quoted(std::string_view key) {
    return "\"" + std::string(key) + "\"";
}

} // namespace

util::Expected<void> validateRule(const json::object& rule) {
    if (!rule.contains("action")) {
        return util::Failure{"\"action\" is missing"};
    }
    for (const auto& member : rule) {
        auto keyRule = std::find_if(kKeyRules.begin(), kKeyRules.end(), [&](const KeyRule& known) {
            return known.key == member.key();
        });
        if (keyRule == kKeyRules.end()) {
            return util::Failure{"unknown key " + quoted(member.key())};
        }
        if (!hasKind(member.value(), keyRule->kind)) {
            return util::Failure{quoted(keyRule->key) + " must be " +
                                 std::string(describeKind(keyRule->kind))};
        }
        if (!keyRule->needs.empty() && !rule.contains(keyRule->needs)) {
            return util::Failure{quoted(keyRule->key) + " without " + quoted(keyRule->needs)};
        }
    }
    if (rule.contains("host") && rule.contains("rdesk")) {
        return util::Failure{"\"host\" together with \"rdesk\""};
    }
    return {};
}

json::object canonicalRule(json::object rule) {
    if (const json::value* takeaway = rule.if_contains("takeaway");
        takeaway != nullptr && *takeaway == false) {
        rule.erase("takeaway");
    }
    return rule;
}

util::Expected<json::array> validateRuleSet(json::array rules, std::string* readBack) {
    for (std::size_t index = 0; index < rules.size(); ++index) {
        const std::string where = "invalid rule #" + std::to_string(index + 1) + ": ";
        json::object* rule = rules[index].if_object();
        if (rule == nullptr) {
            return util::Failure{where + "not an object"};
        }
        if (auto valid = validateRule(*rule); !valid) {
            return util::Failure{where + valid.error()};
        }
        *rule = canonicalRule(std::move(*rule));
        if (auto readsBack = checkReadsBack(*rule); !readsBack) {
            if (readBack != nullptr) {
                *readBack = readsBack.error();
            }
            return util::Failure{where + "it does not read back unchanged from rule text"};
        }
    }
    return rules;
}

} // namespace halvo::daemon
