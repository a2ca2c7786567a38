// One rule record as the clause interpreter builds it: keys in the order they
// were first set, with values that still point into the line's words.
//
// Nothing is allocated while a line is read; the record becomes JSON only
// once the whole line has turned out to be a rule.
#pragma once

#include "rules/rule_keys.h"

#include <array>
#include <boost/json/value_stack.hpp>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace halvo::rules {

class RuleDictionary {
  public:
    void clear() {
        slotOf_ = {};
        size_ = 0;
    }
    bool has(RecordKey key) const { return slotOf_[index(key)] != 0; }

    // Setting a key that is already there replaces its value in place.
    void setText(RecordKey key, std::string_view text) { set(key, Kind::Text, text, 0); }
    // The host list is split when the record becomes JSON.
    void setHostList(RecordKey key, std::string_view list) { set(key, Kind::HostList, list, 0); }
    void setFlag(RecordKey key, bool flag) { set(key, Kind::Flag, {}, flag ? 1 : 0); }
    void setNumber(RecordKey key, std::int64_t number) { set(key, Kind::Number, {}, number); }

    // Pushes the record onto `stack` as one JSON object; the words it points
    // into must still be alive.  Throws std::bad_alloc when memory runs out.
    void pushTo(boost::json::value_stack& stack) const;

  private:
    enum class Kind : std::uint8_t { Text, HostList, Flag, Number };
    // Trivial, so that a dictionary costs nothing to set up.
    struct Entry {
        RecordKey key;
        Kind kind;
        const char* text;
        std::size_t textSize;
        std::int64_t number;
    };

    static std::size_t index(RecordKey key) { return static_cast<std::size_t>(key); }
    void set(RecordKey key, Kind kind, std::string_view text, std::int64_t number) {
        std::uint8_t& slot = slotOf_[index(key)];
        if (slot == 0) {
            slot = static_cast<std::uint8_t>(++size_);
        }
        entries_[slot - 1] = Entry{key, kind, text.data(), text.size(), number};
    }

    std::array<Entry, recordKeyCount> entries_;         // the first size_ are in use
    std::array<std::uint8_t, recordKeyCount> slotOf_{}; // entry index + 1; 0: absent
    std::size_t size_ = 0;
};

} // namespace halvo::rules
