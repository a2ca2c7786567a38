// Records printed as rule text read back as the same records, for every
// record within the limits of the text form: strings without double quotes
// or backslashes, not empty and not starting with "!"; host names without
// commas or whitespace; ports without whitespace or "#"; a class that fits
// a byte; "quick" and "takeaway" only when true; no empty host list.
#include "rules/rule_keys.h"
#include "rules/rule_parser.h"
#include "rules/rule_testing.h"

#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

namespace json = boost::json;
namespace keys = halvo::rules::keys;
using halvo::rules::rule_parser_run;
using halvo::rules::testing::printRules;

class RecordGenerator {
  public:
    explicit RecordGenerator(unsigned seed) : random_(seed) {}

    json::object next() {
        json::object record;
        record[keys::action] = chance(2) ? "share" : "block";
        if (chance(4)) {
            record[keys::quick] = true;
        }
        if (chance(3)) {
            json::array hosts;
            for (int count = pick(1, 3); count > 0; --count) {
                hosts.emplace_back(text(" ,"));
            }
            record[keys::host] = std::move(hosts);
            negate(record, keys::notHost);
        } else if (chance(3)) {
            record[keys::rdesk] = chance(2);
        }
        if (chance(2)) {
            record[keys::name] = text("");
            record[keys::nameMatch] = chance(2) ? "is" : "contains";
            negate(record, keys::notName);
        }
        if (chance(3)) {
            record[keys::builtIn] = chance(2);
        }
        ids(record, {keys::vid, keys::pid, keys::rev}, 0xFFFF, keys::notHwid);
        stringClause(record, keys::serial, "", keys::notSerial);
        stringClause(record, keys::port, " \t#", keys::notPort);
        ids(record, {keys::deviceClass, keys::subclass, keys::protocol}, 0xFF, keys::notClass);
        stringClause(record, keys::overrideName, "", {});
        stringClause(record, keys::overrideSerial, "", {});
        if (chance(4)) {
            record[keys::takeaway] = true;
        }
        return record;
    }

  private:
    bool chance(int oneIn) { return pick(1, oneIn) == 1; }
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }

    // Printable ASCII, blanks, "#", "!" and multi-byte UTF-8, minus `banned`.
    std::string text(std::string_view banned) {
        static const std::string_view pieces[] = {
            "a", "Z", "0", "9", "-", "_", ".", ":", "/", "#", ",", " ", "!", "=", "@",
            "share", "host", "is", "\xc3\xa9", "\xe6\x97\xa5", "\xf0\x9f\x94\x91",
        };
        std::string result;
        for (int count = pick(1, 8); count > 0; --count) {
            const std::string_view piece = pieces[pick(0, static_cast<int>(std::size(pieces)) - 1)];
            const bool clean = piece.find_first_of(banned) == std::string_view::npos;
            if (clean && !(result.empty() && piece == "!")) {
                result += piece;
            }
        }
        return result.empty() ? "x" : result;
    }

    void negate(json::object& record, std::string_view key) {
        if (chance(3)) {
            record[key] = true;
        }
    }

    void stringClause(json::object& record, std::string_view key, std::string_view banned,
                      std::string_view negationKey) {
        if (chance(3)) {
            record[key] = text(banned);
            if (!negationKey.empty()) {
                negate(record, negationKey);
            }
        }
    }

    void ids(json::object& record, std::initializer_list<std::string_view> parts,
             int firstMax, std::string_view negationKey) {
        int max = firstMax;
        for (const std::string_view part : parts) {
            if (!chance(2)) {
                break;
            }
            record[part] = pick(0, max);
            max = 0xFFFF;
        }
        if (record.contains(*parts.begin())) {
            negate(record, negationKey);
        }
    }

    std::mt19937 random_;
};

TEST(RuleRoundTripTest, PrintedRecordsReadBackUnchanged) {
    RecordGenerator generator(20240611);
    json::array records;
    for (int i = 0; i < 3000; ++i) {
        records.emplace_back(generator.next());
    }
    const std::string text = printRules(records);
    const std::optional<json::array> parsed = rule_parser_run(text);
    ASSERT_TRUE(parsed.has_value());
    ASSERT_EQ(parsed->size(), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        ASSERT_EQ((*parsed)[i], records[i]) << "printed as: " << printRules({records[i]});
    }
}

} // namespace
