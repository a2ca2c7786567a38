#include "rules/host_list.h"

#include "rules/rule_chars.h"

namespace halvo::rules {

namespace {

bool isHostSeparator(char c) {
    return c == ',' || isRuleWhitespace(c);
}

} // namespace

std::size_t pushHostList(std::string_view value, boost::json::value_stack& stack) {
    std::size_t count = 0;
    std::size_t at = 0;
    while (at < value.size()) {
        while (at < value.size() && isHostSeparator(value[at])) {
            ++at;
        }
        const std::size_t begin = at;
        while (at < value.size() && !isHostSeparator(value[at])) {
            ++at;
        }
        if (at > begin) {
            stack.push_string(value.substr(begin, at - begin));
            ++count;
        }
    }
    return count;
}

boost::json::array rule_parse_host2array(std::string_view value, boost::json::storage_ptr storage) {
    boost::json::value_stack stack;
    stack.reset(std::move(storage));
    stack.push_array(pushHostList(value, stack));
    return std::move(stack.release().get_array());
}

} // namespace halvo::rules
