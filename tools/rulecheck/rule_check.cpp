#include "tools/rulecheck/rule_check.h"

#include "rules/rule_parser.h"
#include "rules/rule_printer.h"
#include "rules/text_position.h"
#include "util/whole_input.h"

#include <boost/json/object.hpp>
#include <string>

namespace halvo::rulecheck {

namespace {

void write(std::FILE* stream, std::string_view bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), stream);
}

// The caret goes under the column: tabs are copied so that it lines up the
// way the terminal shows the line, and a multi-byte character takes one
// place.
std::string caretLine(std::string_view line, std::size_t column) {
    std::string caret;
    for (std::size_t i = 0; i + 1 < column && i < line.size(); ++i) {
        const auto byte = static_cast<unsigned char>(line[i]);
        if (line[i] == '\t') {
            caret += '\t';
        } else if ((byte & 0xC0) != 0x80) {
            caret += ' ';
        }
    }
    caret += "^\n";
    return caret;
}

void report(std::string_view name, std::string_view text, const rules::RuleTextDiagnostic& found,
            std::string_view kind, std::FILE* err) {
    write(err, name);
    if (found.line == 0) {
        std::fprintf(err, ": %s\n", found.message.c_str());
        return;
    }
    std::fprintf(err, ":%zu:%zu: %.*s", found.line, found.column, static_cast<int>(kind.size()),
                 kind.data());
    if (found.ruleNumber != 0) {
        std::fprintf(err, "rule #%zu: ", found.ruleNumber);
    }
    std::fprintf(err, "%s\n", found.message.c_str());
    std::string_view line = rules::lineAt(text, found.offset);
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    write(err, line);
    write(err, "\n");
    write(err, caretLine(line, found.column));
}

} // namespace

int checkRuleText(std::string_view name, std::string_view text, std::FILE* out, std::FILE* err) {
    rules::RuleTextReport checked = rules::parseRuleTextDetailed(text);
    for (const rules::RuleTextDiagnostic& notice : checked.notices) {
        report(name, text, notice, "warning: ", err);
    }
    if (!checked.records) {
        report(name, text, *checked.error, "", err);
        return invalid;
    }
    boost::json::object reply(checked.records->storage());
    reply.emplace("rules", std::move(*checked.records));
    return rules::outputRuleList(reply, 0, out) == 0 ? valid : invalid;
}

int runRuleCheck(int argc, const char* const* argv, std::FILE* out, std::FILE* err) {
    if (argc != 2 || argv[1][0] == '\0') {
        std::fputs("usage: halvo-rulecheck FILE|-\n", err);
        return unreadable;
    }
    const std::string_view operand = argv[1];
    const bool fromStdin = operand == "-";
    const std::optional<std::string> text =
        util::load_any_file(fromStdin ? nullptr : argv[1], "rules");
    if (!text) {
        return unreadable;
    }
    return checkRuleText(fromStdin ? "<stdin>" : operand, *text, out, err);
}

} // namespace halvo::rulecheck
