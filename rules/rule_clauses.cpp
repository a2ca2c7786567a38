#include "rules/rule_clauses.h"

#include "rules/id_list.h"
#include "rules/rule_keys.h"
#include "rules/word_lookup.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace halvo::rules {

namespace {

enum class Handling : std::uint8_t {
    Negation,  // "!": toggles the pending negation
    Action,    // stores its own word under "action"
    Quick,     // stores true; cannot be negated
    TruthFlag, // stores true, or false when negated
    Rdesk,     // a truth flag that excludes "host"
    Host,      // value: host list
    Name,      // values: mode, then name
    Ids,       // value: up to three hexadecimal numbers
    Text,      // value: stored as it is
    Override,  // value: stored as it is; cannot be negated
};

struct ClauseInfo {
    std::string_view word;
    Handling handling;
    RecordKey key;                             // what it stores (the first id key for Ids)
    RecordKey negationKey = RecordKey::Action; // Action: negation stored in the value or refused
};

constexpr ClauseInfo clauseTable[] = {
    {"!", Handling::Negation, RecordKey::Action},
    {"share", Handling::Action, RecordKey::Action},
    {"block", Handling::Action, RecordKey::Action},
    {"quick", Handling::Quick, RecordKey::Quick},
    {"host", Handling::Host, RecordKey::Host, RecordKey::NotHost},
    {"rdesk", Handling::Rdesk, RecordKey::Rdesk},
    {"name", Handling::Name, RecordKey::Name, RecordKey::NotName},
    {"built-in", Handling::TruthFlag, RecordKey::BuiltIn},
    {"hwid", Handling::Ids, RecordKey::Vid, RecordKey::NotHwid},
    {"serial", Handling::Text, RecordKey::Serial, RecordKey::NotSerial},
    {"port", Handling::Text, RecordKey::Port, RecordKey::NotPort},
    {"class", Handling::Ids, RecordKey::Class, RecordKey::NotClass},
    {"override-name", Handling::Override, RecordKey::OverrideName},
    {"override-serial", Handling::Override, RecordKey::OverrideSerial},
    {"takeaway", Handling::TruthFlag, RecordKey::Takeaway},
};

constexpr std::size_t clauseCount = std::size(clauseTable);

constexpr WordLookup<clauseCount> clauseLookup([] {
    std::array<std::string_view, clauseCount> words{};
    for (std::size_t i = 0; i < clauseCount; ++i) {
        words[i] = clauseTable[i].word;
    }
    return words;
}());

const ClauseInfo* findClause(std::string_view word) {
    const std::size_t index = clauseLookup.find(word);
    return index == clauseCount ? nullptr : &clauseTable[index];
}

// The three keys that the id clause starting at `first` writes, in order:
// vid, pid, rev or class, subclass, protocol follow one another.
RecordKey idKey(RecordKey first, std::size_t position) {
    return static_cast<RecordKey>(static_cast<std::size_t>(first) + position);
}
static_assert(static_cast<int>(RecordKey::Rev) - static_cast<int>(RecordKey::Vid) == 2);
static_assert(static_cast<int>(RecordKey::Protocol) - static_cast<int>(RecordKey::Class) == 2);

constexpr std::string_view modeIs = "is";
constexpr std::string_view modeContains = "contains";

class RecordBuilder {
  public:
    RecordBuilder(const TokenList& tokens, RuleDictionary& record, RuleFault* fault)
        : tokens_(tokens), fault_(fault), record_(record) {
        record_.clear();
    }

    bool build() {
        if (tokens_.empty()) {
            return report(RuleFaultKind::NoWords, 0);
        }
        for (std::size_t index = 0; index < tokens_.size(); ++index) {
            const bool accepted = awaited_ != nullptr ? takeValue(index) : takeClauseWord(index);
            if (!accepted) {
                return false;
            }
        }
        if (!record_.has(RecordKey::Action)) {
            return failWithoutAction();
        }
        if (fault_ != nullptr) {
            noteIgnoredEnd();
        }
        return true;
    }

  private:
    bool takeClauseWord(std::size_t index) {
        const std::string_view word = tokens_[index];
        const ClauseInfo* clause = findClause(word);
        if (clause == nullptr) {
            return reportAt(RuleFaultKind::UnknownWord, index, {}, word);
        }
        switch (clause->handling) {
        case Handling::Negation:
            negated_ = !negated_;
            negationAt_ = index;
            return true;
        case Handling::Action:
            if (negated_) {
                return reportAt(RuleFaultKind::NegatedAction, index, word);
            }
            if (record_.has(clause->key)) {
                return reportAt(RuleFaultKind::SecondAction, index, word);
            }
            record_.setText(clause->key, word);
            break;
        case Handling::Quick:
            if (negated_) {
                return reportAt(RuleFaultKind::NegatedQuick, index, word);
            }
            if (record_.has(clause->key)) {
                return reportAt(RuleFaultKind::DuplicateClause, index, word);
            }
            record_.setFlag(clause->key, true);
            break;
        case Handling::Rdesk:
            if (record_.has(RecordKey::Host)) {
                return reportAt(RuleFaultKind::RdeskAfterHost, index, word);
            }
            [[fallthrough]];
        case Handling::TruthFlag:
            if (record_.has(clause->key)) {
                return reportAt(RuleFaultKind::DuplicateClause, index, word);
            }
            record_.setFlag(clause->key, !negated_);
            break;
        case Handling::Host:
            if (record_.has(RecordKey::Rdesk)) {
                return reportAt(RuleFaultKind::HostAfterRdesk, index, word);
            }
            return await(*clause, index);
        case Handling::Name:
        case Handling::Ids:
        case Handling::Text:
        case Handling::Override:
            return await(*clause, index);
        }
        negated_ = false;
        return true;
    }

    bool takeValue(std::size_t index) {
        const ClauseInfo& clause = *awaited_;
        const std::string_view value = tokens_[index];
        if (fault_ != nullptr && actionAsValueAt_ == noToken) {
            const ClauseInfo* valueAsClause = findClause(value);
            if (valueAsClause != nullptr && valueAsClause->handling == Handling::Action) {
                actionAsValueAt_ = index;
                actionTakenBy_ = clause.word;
            }
        }
        if (clause.handling == Handling::Name && nameMode_.empty()) {
            return takeNameMode(index);
        }
        if (clause.handling == Handling::Override && negated_) {
            return reportAt(RuleFaultKind::NegatedOverride, awaitedAt_, clause.word);
        }
        if (clause.handling != Handling::Ids && record_.has(clause.key)) {
            return reportAt(RuleFaultKind::DuplicateClause, awaitedAt_, clause.word);
        }
        switch (clause.handling) {
        case Handling::Host:
            record_.setHostList(clause.key, value);
            break;
        case Handling::Name:
            record_.setText(clause.key, value);
            record_.setText(RecordKey::NameMatch, nameMode_);
            break;
        case Handling::Ids:
            if (!storeIds(clause, index)) {
                return false;
            }
            break;
        default:
            record_.setText(clause.key, value);
            break;
        }
        if (negated_) {
            record_.setFlag(clause.negationKey, true);
        }
        awaited_ = nullptr;
        nameMode_ = {};
        negated_ = false;
        return true;
    }

    bool takeNameMode(std::size_t index) {
        const std::string_view mode = tokens_[index];
        if (mode == modeIs) {
            nameMode_ = modeIs;
        } else if (mode == modeContains) {
            nameMode_ = modeContains;
        } else {
            return reportAt(RuleFaultKind::BadNameMode, index, awaited_->word, mode);
        }
        return true;
    }

    // Only the low 16 bits of each number are kept; a later "hwid" or
    // "class" overwrites what an earlier one stored.
    bool storeIds(const ClauseInfo& clause, std::size_t index) {
        std::array<std::uint64_t, 3> numbers{};
        IdListFault idFault;
        const std::size_t count = rule_parser_triple2values(tokens_[index], numbers,
                                                            fault_ != nullptr ? &idFault : nullptr);
        if (count == 0) {
            return reportAt(idFault.kind, index, clause.word, idFault.component);
        }
        for (std::size_t i = 0; i < count; ++i) {
            record_.setNumber(idKey(clause.key, i), static_cast<std::int64_t>(numbers[i] & 0xFFFF));
        }
        return true;
    }

    // Explains a line without an action by the likeliest slip: an action
    // word read as a clause's value, or a clause left without its value.
    bool failWithoutAction() {
        if (actionAsValueAt_ != noToken) {
            return reportAt(RuleFaultKind::NoAction, actionAsValueAt_, actionTakenBy_,
                            tokens_[actionAsValueAt_]);
        }
        if (awaited_ != nullptr) {
            return reportAt(RuleFaultKind::NoAction, awaitedAt_, awaited_->word);
        }
        return report(RuleFaultKind::NoAction, 0);
    }

    void noteIgnoredEnd() {
        if (awaited_ != nullptr) {
            reportAt(RuleFaultKind::DroppedClause, awaitedAt_, awaited_->word);
        } else if (negated_) {
            reportAt(RuleFaultKind::DroppedNegation, negationAt_, "!");
        } else {
            *fault_ = RuleFault{};
        }
    }

    bool await(const ClauseInfo& clause, std::size_t index) {
        awaited_ = &clause;
        awaitedAt_ = index;
        return true;
    }

    // Describes what went wrong (or, for a notice, what was ignored) when
    // diagnosing, and returns false.
    bool report(RuleFaultKind kind, std::size_t lineOffset, std::string_view clause = {},
                std::string_view subject = {}) {
        if (fault_ != nullptr) {
            *fault_ = RuleFault{kind, lineOffset, std::string(clause), std::string(subject)};
        }
        return false;
    }
    bool reportAt(RuleFaultKind kind, std::size_t tokenIndex, std::string_view clause,
                  std::string_view subject = {}) {
        return report(kind, tokens_.lineOffset(tokenIndex), clause, subject);
    }

    const TokenList& tokens_;
    RuleFault* fault_;
    RuleDictionary& record_;
    static constexpr std::size_t noToken = ~std::size_t{0};

    const ClauseInfo* awaited_ = nullptr; // clause waiting for its value
    std::size_t awaitedAt_ = 0;           // the token index of its word
    std::size_t negationAt_ = 0;          // the token index of the last "!"
    // Only when diagnosing: the first "share" or "block" taken as a value.
    std::size_t actionAsValueAt_ = noToken;
    std::string_view actionTakenBy_;
    std::string_view nameMode_; // "is" or "contains" once read
    bool negated_ = false;
};

} // namespace

bool rule_parser_line2dictionary(const TokenList& tokens, RuleDictionary& record,
                                 RuleFault* fault) {
    return RecordBuilder(tokens, record, fault).build();
}

} // namespace halvo::rules
