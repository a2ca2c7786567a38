// Random rule records that the text form can carry unchanged, for the
// round-trip test and the benchmarks: strings without double quotes or
// backslashes, not empty and not starting with "!"; host names without
// commas or whitespace; ports without whitespace or "#"; a class that fits
// a byte; "quick" and "takeaway" only when true; no empty host list.
#pragma once

#include "rules/rule_keys.h"

#include <array>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace halvo::testkit {

using rules::RecordKey;

class RecordGenerator {
  public:
    explicit RecordGenerator(unsigned seed) : random_(seed) {}

    boost::json::object next() {
        record_ = boost::json::object();
        set(RecordKey::Action, chance(2) ? "share" : "block");
        if (chance(4)) {
            set(RecordKey::Quick, true);
        }
        if (chance(3)) {
            boost::json::array hosts;
            for (int count = pick(1, 3); count > 0; --count) {
                hosts.emplace_back(text(" ,"));
            }
            set(RecordKey::Host, std::move(hosts));
            negate(RecordKey::NotHost, RecordKey::Host);
        } else if (chance(3)) {
            set(RecordKey::Rdesk, chance(2));
        }
        if (chance(2)) {
            set(RecordKey::Name, text(""));
            set(RecordKey::NameMatch, chance(2) ? "is" : "contains");
            negate(RecordKey::NotName, RecordKey::Name);
        }
        if (chance(3)) {
            set(RecordKey::BuiltIn, chance(2));
        }
        ids({RecordKey::Vid, RecordKey::Pid, RecordKey::Rev}, 0xFFFF, RecordKey::NotHwid);
        textClause(RecordKey::Serial, "");
        negate(RecordKey::NotSerial, RecordKey::Serial);
        textClause(RecordKey::Port, " \t#");
        negate(RecordKey::NotPort, RecordKey::Port);
        ids({RecordKey::Class, RecordKey::Subclass, RecordKey::Protocol}, 0xFF,
            RecordKey::NotClass);
        textClause(RecordKey::OverrideName, "");
        textClause(RecordKey::OverrideSerial, "");
        if (chance(4)) {
            set(RecordKey::Takeaway, true);
        }
        return std::move(record_);
    }

  private:
    bool chance(int oneIn) { return pick(1, oneIn) == 1; }
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }

    template <class Value> void set(RecordKey key, Value&& value) {
        record_[keyName(key)] = std::forward<Value>(value);
    }

    // Printable ASCII, blanks, "#", "!" and multi-byte UTF-8, minus `banned`.
    std::string text(std::string_view banned) {
        // clang-format off
        static constexpr std::string_view pieces[] = {
            "a", "Z", "0", "9", "-", "_", ".", ":", "/", "#", ",", " ", "!", "=", "@", "share",
            "host", "is", "\xc3\xa9", "\xe6\x97\xa5", "\xf0\x9f\x94\x91"};
        // clang-format on
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

    // Sets the negation key now and then, if its clause is there.
    void negate(RecordKey negationKey, RecordKey clauseKey) {
        if (record_.contains(keyName(clauseKey)) && chance(3)) {
            set(negationKey, true);
        }
    }

    void textClause(RecordKey key, std::string_view banned) {
        if (chance(3)) {
            set(key, text(banned));
        }
    }

    void ids(const std::array<RecordKey, 3>& parts, int firstMax, RecordKey negationKey) {
        int max = firstMax;
        for (const RecordKey part : parts) {
            if (!chance(2)) {
                break;
            }
            set(part, pick(0, max));
            max = 0xFFFF;
        }
        negate(negationKey, parts[0]);
    }

    std::mt19937 random_;
    boost::json::object record_;
};

} // namespace halvo::testkit
