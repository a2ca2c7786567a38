#include "rules/rule_printer.h"

#include "rules/record_fields.h"
#include "util/json_fields.h"
#include "util/text_buffer.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace halvo::rules {

namespace json = boost::json;

namespace {

using util::isFlag;
using util::isNumber;
using util::toFlag;
using util::toU32;

std::string_view asText(const json::value& value) {
    const json::string& text = value.get_string();
    return std::string_view(text.data(), text.size());
}

bool isText(const json::value* value) {
    return value != nullptr && value->is_string();
}
bool isFlagValue(const json::value* value) {
    return value != nullptr && isFlag(*value);
}
bool isNumberValue(const json::value* value) {
    return value != nullptr && isNumber(*value);
}

// The negation slot before a clause word: set when the record's negation key
// is a flag that is true.
bool negated(const json::value* negationKey) {
    return isFlagValue(negationKey) && toFlag(*negationKey);
}

// Writes one record as a line of rule text, its clauses in the one order
// that the rule text has always been listed in.
class RuleWriter {
  public:
    RuleWriter(const RecordFields& fields, util::TextBuffer& out) : fields_(fields), out_(out) {}

    void write() {
        out_.cString(asText(*field(RecordKey::Action)));
        // A false "quick" or "takeaway" leaves its blank behind: the listing
        // has always looked like that, and the parser skips the blank.
        flagWord(RecordKey::Quick, "quick");
        if (!hostList()) {
            polarWord(RecordKey::Rdesk, "rdesk");
        }
        nameClause();
        polarWord(RecordKey::BuiltIn, "built-in");
        ids({RecordKey::Vid, RecordKey::Pid, RecordKey::Rev}, RecordKey::NotHwid, "hwid", 0xFFFF,
            4);
        quotedText(RecordKey::Serial, RecordKey::NotSerial, "serial");
        if (isText(field(RecordKey::Port))) {
            clauseWord(negated(field(RecordKey::NotPort)), "port");
            out_.character(' ');
            out_.cString(asText(*field(RecordKey::Port)));
        }
        // A device class is one byte, though its subclass and protocol are
        // shown in full.
        ids({RecordKey::Class, RecordKey::Subclass, RecordKey::Protocol}, RecordKey::NotClass,
            "class", 0xFF, 2);
        quotedText(RecordKey::OverrideName, std::nullopt, "override-name");
        quotedText(RecordKey::OverrideSerial, std::nullopt, "override-serial");
        flagWord(RecordKey::Takeaway, "takeaway");
        out_.character('\n');
    }

  private:
    const json::value* field(RecordKey key) const { return fields_[key]; }

    // " word" when the flag is true, " " when it is false.
    template <std::size_t Size> void flagWord(RecordKey key, const char (&word)[Size]) {
        const json::value* flag = field(key);
        if (isFlagValue(flag)) {
            out_.character(' ');
            if (toFlag(*flag)) {
                out_.literal(word);
            }
        }
    }

    // " word" when the flag is true, " !word" when it is false.
    template <std::size_t Size> void polarWord(RecordKey key, const char (&word)[Size]) {
        const json::value* flag = field(key);
        if (isFlagValue(flag)) {
            clauseWord(!toFlag(*flag), word);
        }
    }

    bool hostList() {
        const json::value* hosts = field(RecordKey::Host);
        if (hosts == nullptr || !hosts->is_array()) {
            return false;
        }
        clauseWord(negated(field(RecordKey::NotHost)), "host");
        out_.literal(" \"");
        bool first = true;
        for (const json::value& host : hosts->get_array()) {
            if (host.is_string()) {
                if (!first) {
                    out_.character(',');
                }
                out_.cString(asText(host));
                first = false;
            }
        }
        out_.character('"');
        return true;
    }

    void nameClause() {
        const json::value* name = field(RecordKey::Name);
        const json::value* mode = field(RecordKey::NameMatch);
        if (!isText(name) || !isText(mode)) {
            return;
        }
        const std::string_view modeText = asText(*mode);
        if (modeText != "is" && modeText != "contains") {
            return;
        }
        clauseWord(negated(field(RecordKey::NotName)), "name");
        out_.character(' ');
        out_.cString(modeText);
        quoted(asText(*name));
    }

    // vid[:pid[:rev]] and class[:subclass[:protocol]]: each part is shown
    // only when the one before it is.
    template <std::size_t Size>
    void ids(const std::array<RecordKey, 3>& parts, RecordKey negationKey, const char (&word)[Size],
             std::uint32_t firstMask, int digits) {
        if (!isNumberValue(field(parts[0]))) {
            return;
        }
        clauseWord(negated(field(negationKey)), word);
        out_.character(' ');
        out_.hex(toU32(*field(parts[0])) & firstMask, digits);
        for (std::size_t i = 1; i < parts.size() && isNumberValue(field(parts[i])); ++i) {
            out_.character(':');
            out_.hex(toU32(*field(parts[i])) & 0xFFFF, digits);
        }
    }

    template <std::size_t Size>
    void quotedText(RecordKey key, std::optional<RecordKey> negationKey, const char (&word)[Size]) {
        const json::value* text = field(key);
        if (isText(text)) {
            clauseWord(negationKey && negated(field(*negationKey)), word);
            quoted(asText(*text));
        }
    }

    template <std::size_t Size> void clauseWord(bool negation, const char (&word)[Size]) {
        out_.character(' ');
        if (negation) {
            out_.character('!');
        }
        out_.literal(word);
    }

    // Nothing is escaped: a quote inside the text ends up unbalanced.
    void quoted(std::string_view text) {
        out_.literal(" \"");
        out_.cString(text);
        out_.character('"');
    }

    const RecordFields& fields_;
    util::TextBuffer& out_;
};

} // namespace

int outputRuleList(const json::object& reply, std::uint32_t numbered, std::FILE* out) {
    if (util::getString(reply, "status")) {
        std::fputs("Internal error.\n", stderr);
        return 5;
    }
    const json::array* rules = util::getArray(reply, "rules");
    if (rules == nullptr) {
        std::fputs("Rule list format error.\n", stderr);
        return 5;
    }
    util::TextBuffer buffer(out);
    unsigned long index = 0;
    for (const json::value& element : *rules) {
        ++index; // a skipped element still uses up its number
        const json::object* record = element.if_object();
        if (record == nullptr) {
            continue;
        }
        const RecordFields fields(*record);
        if (!isText(fields[RecordKey::Action])) {
            continue;
        }
        if (numbered != 0) {
            buffer.decimal(index);
            buffer.literal(": ");
        }
        RuleWriter(fields, buffer).write();
    }
    return 0;
}

} // namespace halvo::rules
