#include "tools/rulecheck/rule_check.h"

#include "rules/host_address.h"
#include "rules/rule_firstpass.h"
#include "rules/rule_parser.h"
#include "rules/rule_printer.h"
#include "rules/rule_tokenizer.h"
#include "rules/text_position.h"
#include "util/json_file.h"

#include <algorithm>
#include <boost/json/object.hpp>
#include <map>
#include <string>
#include <variant>
#include <vector>

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

// Each rule's host entries that are no address, by rule index.
std::map<std::size_t, std::vector<std::string>> hostNames(const boost::json::array& records) {
    std::map<std::size_t, std::vector<std::string>> found;
    for (std::size_t index = 0; index < records.size(); ++index) {
        const boost::json::object* record = records[index].if_object();
        const boost::json::value* hosts = record ? record->if_contains("host") : nullptr;
        if (hosts == nullptr || !hosts->is_array()) {
            continue;
        }
        for (const boost::json::value& host : hosts->get_array()) {
            if (host.is_string() && !rules::parseHostAddress(host.get_string())) {
                found[index].emplace_back(host.get_string());
            }
        }
    }
    return found;
}

// Where the value of the rule's "host" clause begins in its logical line.
std::size_t hostValueOffset(std::string_view line) {
    rules::TokenList words;
    if (rules::rule_parser_line(line, words)) {
        for (std::size_t index = 0; index + 1 < words.size(); ++index) {
            if (words[index] == "host") {
                return words.lineOffset(index + 1);
            }
        }
    }
    return 0;
}

// A warning for every host entry that is no address: the daemon resolves
// no names, so no network peer ever matches it (and "!host" matches them
// all).  Each points at its rule's host list.
std::vector<rules::RuleTextDiagnostic> unmatchableHosts(std::string_view text,
                                                        const boost::json::array& records) {
    const auto names = hostNames(records);
    if (names.empty()) {
        return {};
    }
    std::vector<rules::LinePoint> points;
    std::size_t lineIndex = 0;
    rules::rule_parser_firstpass(text, [&](std::string_view line) {
        if (names.contains(lineIndex)) {
            points.push_back({lineIndex, hostValueOffset(line)});
        }
        ++lineIndex;
        return true;
    });
    const std::vector<std::size_t> offsets = rules::textOffsetsOf(text, points);
    const std::vector<rules::TextPosition> positions = rules::textPositionsOf(text, offsets);
    std::vector<rules::RuleTextDiagnostic> warnings;
    for (std::size_t point = 0; point < points.size(); ++point) {
        const std::size_t rule = points[point].lineIndex;
        for (const std::string& name : names.at(rule)) {
            warnings.push_back(
                {rule + 1, offsets[point], positions[point].line, positions[point].column,
                 "host \"" + name +
                     "\" is no address: host names are not resolved; it matches only a TLS peer "
                     "whose certificate holds it"});
        }
    }
    return warnings;
}

constexpr const char* kProgram = "halvo-rulecheck";
constexpr std::string_view kUsage = "usage: halvo-rulecheck [--strict] FILE|-...\n";
constexpr std::string_view kHelp =
    "Checks rule files as `halvoctl rule load` reads them, without a daemon: prints\n"
    "the rules of each valid file in their canonical form, or the first error of\n"
    "a file as FILE:LINE:COLUMN with the line and a caret under the column.\n"
    "  --strict    a file with a warning fails too\n"
    "  --help      this text\n"
    "  --version   the program's version\n"
    "FILE - is standard input.  Exit status: 0 every file is valid, 1 a file has\n"
    "an error, 2 a file cannot be read or the command line is wrong.\n";

struct CommandLine {
    Warnings warnings = Warnings::allowed;
    std::vector<std::string_view> files;
};

// The command line, or the status to exit with once it has been answered
// (help, version) or refused.
std::variant<CommandLine, int> parseCommandLine(int argc, const char* const* argv, std::FILE* out,
                                                std::FILE* err) {
    CommandLine line;
    bool operandsOnly = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (operandsOnly || argument == "-" || !argument.starts_with('-')) {
            line.files.push_back(argument);
        } else if (argument == "--") {
            operandsOnly = true;
        } else if (argument == "--strict") {
            line.warnings = Warnings::fail;
        } else if (argument == "--help" || argument == "-h") {
            write(out, kUsage);
            write(out, kHelp);
            return valid;
        } else if (argument == "--version") {
            std::fprintf(out, "%s %s\n", kProgram, HALVO_VERSION);
            return valid;
        } else {
            std::fprintf(err, "%s: unknown option \"%s\"\n", kProgram, argv[i]);
            write(err, kUsage);
            return unreadable;
        }
    }
    if (line.files.empty()) {
        std::fprintf(err, "%s: no rule file given\n", kProgram);
        write(err, kUsage);
        return unreadable;
    }
    return line;
}

int checkOneFile(std::string_view operand, Warnings warnings, std::FILE* stdinStream,
                 std::FILE* out, std::FILE* err) {
    const bool fromStdin = operand == "-";
    const std::string name = fromStdin ? "<stdin>" : std::string(operand);
    const util::Expected<std::string> text =
        fromStdin ? util::readWholeStream(stdinStream, name) : util::readWholeFile(name);
    if (!text) {
        std::fprintf(err, "%s: %s\n", kProgram, text.error().c_str());
        return unreadable;
    }
    return checkRuleText(name, *text, warnings, out, err);
}

} // namespace

int checkRuleText(std::string_view name, std::string_view text, Warnings warnings, std::FILE* out,
                  std::FILE* err) {
    rules::RuleTextReport checked = rules::parseRuleTextDetailed(text);
    if (checked.records) {
        for (rules::RuleTextDiagnostic& warning : unmatchableHosts(text, *checked.records)) {
            checked.notices.push_back(std::move(warning));
        }
        std::stable_sort(checked.notices.begin(), checked.notices.end(),
                         [](const auto& a, const auto& b) { return a.offset < b.offset; });
    }
    for (const rules::RuleTextDiagnostic& notice : checked.notices) {
        report(name, text, notice, "warning: ", err);
    }
    if (!checked.records) {
        report(name, text, *checked.error, "", err);
        return invalid;
    }
    if (warnings == Warnings::fail && !checked.notices.empty()) {
        return invalid;
    }
    boost::json::object reply(checked.records->storage());
    reply.emplace("rules", std::move(*checked.records));
    return rules::outputRuleList(reply, 0, out) == 0 ? valid : invalid;
}

int runRuleCheck(int argc, const char* const* argv, std::FILE* stdinStream, std::FILE* out,
                 std::FILE* err) {
    const std::variant<CommandLine, int> parsed = parseCommandLine(argc, argv, out, err);
    if (const int* status = std::get_if<int>(&parsed)) {
        return *status;
    }
    const CommandLine& line = std::get<CommandLine>(parsed);
    int worst = valid;
    for (const std::string_view file : line.files) {
        worst = std::max(worst, checkOneFile(file, line.warnings, stdinStream, out, err));
    }
    return worst;
}

} // namespace halvo::rulecheck
