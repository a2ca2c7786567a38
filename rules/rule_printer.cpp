#include "rules/rule_printer.h"

#include "rules/record_fields.h"
#include "rules/text_buffer.h"
#include "util/json_fields.h"

#include <array>
#include <string_view>

namespace halvo::rules {

namespace json = boost::json;

namespace {

using util::isFlag;
using util::isNumber;
using util::toFlag;
using util::toU32;

std::string_view asText(const json::value* value) {
    const json::string& text = value->get_string();
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

// The "!" slot before a clause word: set when the negation key is a true flag.
std::string_view negation(const json::value* negationKey) {
    return isFlagValue(negationKey) && toFlag(*negationKey) ? "!" : "";
}

class RuleWriter {
  public:
    RuleWriter(const RecordFields& fields, TextBuffer& out) : fields_(fields), out_(out) {}

    void write() {
        out_.text(asText(fields_[RecordKey::Action]));
        // A false "quick" or "takeaway" leaves its blank behind: the
        // listing has always looked like that, and the parser skips it.
        flagWord(RecordKey::Quick, "quick");
        if (!hostList()) {
            polarWord(RecordKey::Rdesk, "rdesk");
        }
        nameMatch();
        polarWord(RecordKey::BuiltIn, "built-in");
        ids("hwid", {RecordKey::Vid, RecordKey::Pid, RecordKey::Rev}, RecordKey::NotHwid, 0xFFFF, 4);
        value("serial", RecordKey::Serial, negation(fields_[RecordKey::NotSerial]), true);
        value("port", RecordKey::Port, negation(fields_[RecordKey::NotPort]), false);
        // A device class is one byte, though its subclass and protocol are
        // shown in full.
        ids("class", {RecordKey::Class, RecordKey::Subclass, RecordKey::Protocol},
            RecordKey::NotClass, 0xFF, 2);
        value("override-name", RecordKey::OverrideName, "", true);
        value("override-serial", RecordKey::OverrideSerial, "", true);
        flagWord(RecordKey::Takeaway, "takeaway");
    }

  private:
    // " word" when the flag is true, " " when it is false.
    void flagWord(RecordKey key, std::string_view word) {
        const json::value* flag = fields_[key];
        if (isFlagValue(flag)) {
            out_.character(' ');
            if (toFlag(*flag)) {
                out_.text(word);
            }
        }
    }

    // " word" when the flag is true, " !word" when it is false.
    void polarWord(RecordKey key, std::string_view word) {
        const json::value* flag = fields_[key];
        if (isFlagValue(flag)) {
            clauseWord(toFlag(*flag) ? "" : "!", word);
        }
    }

    bool hostList() {
        const json::value* hosts = fields_[RecordKey::Host];
        if (hosts == nullptr || !hosts->is_array()) {
            return false;
        }
        clauseWord(negation(fields_[RecordKey::NotHost]), "host");
        out_.text(" \"");
        bool first = true;
        for (const json::value& host : hosts->get_array()) {
            if (host.is_string()) {
                if (!first) {
                    out_.character(',');
                }
                out_.text(asText(&host));
                first = false;
            }
        }
        out_.character('"');
        return true;
    }

    void nameMatch() {
        const json::value* name = fields_[RecordKey::Name];
        const json::value* mode = fields_[RecordKey::NameMatch];
        if (!isText(name) || !isText(mode)) {
            return;
        }
        const std::string_view modeText = asText(mode);
        if (modeText != "is" && modeText != "contains") {
            return;
        }
        clauseWord(negation(fields_[RecordKey::NotName]), "name");
        out_.character(' ');
        out_.text(modeText);
        quoted(asText(name));
    }

    // vid[:pid[:rev]] and class[:subclass[:protocol]]: each part is shown
    // only when the one before it is.
    void ids(std::string_view word, const std::array<RecordKey, 3>& parts, RecordKey negationKey,
             std::uint32_t firstMask, int digits) {
        if (!isNumberValue(fields_[parts[0]])) {
            return;
        }
        clauseWord(negation(fields_[negationKey]), word);
        out_.character(' ');
        out_.hex(toU32(*fields_[parts[0]]) & firstMask, digits);
        for (std::size_t i = 1; i < parts.size() && isNumberValue(fields_[parts[i]]); ++i) {
            out_.character(':');
            out_.hex(toU32(*fields_[parts[i]]) & 0xFFFF, digits);
        }
    }

    void value(std::string_view word, RecordKey key, std::string_view negated, bool inQuotes) {
        const json::value* text = fields_[key];
        if (!isText(text)) {
            return;
        }
        clauseWord(negated, word);
        if (inQuotes) {
            quoted(asText(text));
        } else {
            out_.character(' ');
            out_.text(asText(text));
        }
    }

    void clauseWord(std::string_view negated, std::string_view word) {
        out_.character(' ');
        out_.text(negated);
        out_.text(word);
    }

    // Nothing is escaped: a quote inside the text ends up unbalanced.
    void quoted(std::string_view text) {
        out_.text(" \"");
        out_.text(text);
        out_.character('"');
    }

    const RecordFields& fields_;
    TextBuffer& out_;
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
    TextBuffer buffer(out);
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
            buffer.text(": ");
        }
        RuleWriter(fields, buffer).write();
        buffer.endLine();
    }
    return 0;
}

} // namespace halvo::rules
