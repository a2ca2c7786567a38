#include "rules/editor_session.h"

#include "rules/editor.h"
#include "rules/prompt.h"
#include "rules/rule_sources.h"

namespace halvo::rules {

std::optional<boost::json::array> loadRulesFromEditor(const std::string& path) {
    for (;;) {
        if (runEditor(path) == 0)
            return std::nullopt;
        if (auto rules = load_rule_file(path.c_str()))
            return rules;
        if (areYouSure("Edit again [y/n]? ") == 'n')
            return std::nullopt;
    }
}

} // namespace halvo::rules
