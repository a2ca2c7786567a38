#include "rulefiles/rule_sources.h"

#include "rules/rule_parser.h"
#include "util/whole_input.h"

namespace halvo::rulefiles {

std::optional<boost::json::array> load_rule_file(const char* path) {
    const auto text = util::load_any_file(path, "rules");
    if (!text)
        return std::nullopt;
    return rules::rule_parser_run(*text);
}

} // namespace halvo::rulefiles
