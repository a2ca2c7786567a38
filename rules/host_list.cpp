#include "rules/host_list.h"

#include "rules/rule_chars.h"

#include <cstddef>

namespace halvo::rules {

namespace {

bool isHostSeparator(char c) {
    return c == ',' || isRuleWhitespace(c);
}

// Calls visit(piece) for each maximal run of non-separator bytes.
template <class Visit> void forEachHost(std::string_view value, Visit visit) {
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
            visit(value.substr(begin, at - begin));
        }
    }
}

} // namespace

boost::json::array rule_parse_host2array(std::string_view value, boost::json::storage_ptr storage) {
    std::size_t count = 0;
    forEachHost(value, [&count](std::string_view) { ++count; });
    boost::json::array hosts(std::move(storage));
    hosts.reserve(count);
    forEachHost(value, [&hosts](std::string_view host) { hosts.emplace_back(host); });
    return hosts;
}

} // namespace halvo::rules
