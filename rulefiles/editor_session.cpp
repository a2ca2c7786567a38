#include "rulefiles/editor_session.h"

#include "rulefiles/editor.h"
#include "rulefiles/prompt.h"
#include "rulefiles/rule_sources.h"

namespace halvo::rulefiles {

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

} // namespace halvo::rulefiles
