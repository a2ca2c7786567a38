#include "daemon/core/rule_text.h"

#include "rules/rule_parser.h"
#include "rules/rule_printer.h"

#include <cstdio>
#include <cstdlib>

namespace halvo::daemon {

namespace json = boost::json;

std::optional<std::string> printRuleText(const json::array& rules) {
    char* buffer = nullptr;
    std::size_t size = 0;
    std::FILE* stream = open_memstream(&buffer, &size);
    if (stream == nullptr) {
        return std::nullopt;
    }
    json::object reply;
    reply["rules"] = rules;
    int status = rules::outputRuleList(reply, 0, stream);
    std::fclose(stream);
    std::optional<std::string> text;
    if (status == 0) {
        text.emplace(buffer, size);
    }
    std::free(buffer);
    return text;
}

util::Expected<json::array> parseRuleText(std::string_view text) {
    return rules::rule_parser_check(text);
}

util::Expected<void> checkReadsBack(const json::object& rule) {
    json::array single;
    single.push_back(rule);
    auto text = printRuleText(single);
    if (!text) {
        return util::Failure{"the rule printer refuses it"};
    }
    auto parsed = parseRuleText(*text);
    if (!parsed) {
        return util::Failure{parsed.error()};
    }
    if (parsed->size() != 1 || (*parsed)[0] != json::value(rule)) {
        return util::Failure{"it reads back as another record"};
    }
    return {};
}

} // namespace halvo::daemon
