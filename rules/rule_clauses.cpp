#include "rules/rule_clauses.h"

#include "rules/host_list.h"
#include "rules/id_list.h"
#include "rules/rule_keys.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace halvo::rules {

namespace json = boost::json;

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
    std::string_view key = {};
    std::string_view negationKey = {};
    std::array<std::string_view, 3> idKeys = {};
};

constexpr ClauseInfo clauseTable[] = {
    {"!", Handling::Negation},
    {"share", Handling::Action, keys::action},
    {"block", Handling::Action, keys::action},
    {"quick", Handling::Quick, keys::quick},
    {"host", Handling::Host, keys::host, keys::notHost},
    {"rdesk", Handling::Rdesk, keys::rdesk},
    {"name", Handling::Name, keys::name, keys::notName},
    {"built-in", Handling::TruthFlag, keys::builtIn},
    {"hwid", Handling::Ids, {}, keys::notHwid, {keys::vid, keys::pid, keys::rev}},
    {"serial", Handling::Text, keys::serial, keys::notSerial},
    {"port", Handling::Text, keys::port, keys::notPort},
    {"class", Handling::Ids, {}, keys::notClass, {keys::deviceClass, keys::subclass, keys::protocol}},
    {"override-name", Handling::Override, keys::overrideName},
    {"override-serial", Handling::Override, keys::overrideSerial},
    {"takeaway", Handling::TruthFlag, keys::takeaway},
};

constexpr std::size_t clauseCount = std::size(clauseTable);
static_assert(clauseCount <= 32, "presence bits must fit an unsigned");

// A record holds at most this many keys, however long its line.
constexpr std::size_t maxRecordKeys = 24;

constexpr std::string_view modeIs = "is";
constexpr std::string_view modeContains = "contains";

const ClauseInfo* findClause(std::string_view word) {
    for (const ClauseInfo& clause : clauseTable) {
        if (clause.word == word) {
            return &clause;
        }
    }
    return nullptr;
}

class RecordBuilder {
  public:
    RecordBuilder(const TokenList& tokens, RuleFault* fault) : tokens_(tokens), fault_(fault) {}

    std::optional<json::object> build() {
        if (tokens_.empty()) {
            return fail(RuleFaultKind::NoWords, 0);
        }
        // A "!" or a value word stores nothing, so a third more than the
        // word count covers the four keys of "! hwid a:b:c".
        record_.reserve(std::min(tokens_.size() + tokens_.size() / 3 + 1, maxRecordKeys));
        for (std::size_t index = 0; index < tokens_.size(); ++index) {
            const bool accepted = awaited_ != nullptr ? takeValue(index) : takeClauseWord(index);
            if (!accepted) {
                return std::nullopt;
            }
        }
        if (!actionGiven_) {
            return fail(RuleFaultKind::NoAction, 0);
        }
        return std::move(record_);
    }

  private:
    bool takeClauseWord(std::size_t index) {
        const std::string_view word = tokens_[index];
        const ClauseInfo* clause = findClause(word);
        if (clause == nullptr) {
            return failAt(RuleFaultKind::UnknownWord, index, {}, word);
        }
        switch (clause->handling) {
        case Handling::Negation:
            negated_ = !negated_;
            return true;
        case Handling::Action:
            if (negated_) {
                return failAt(RuleFaultKind::NegatedAction, index, word);
            }
            if (actionGiven_) {
                return failAt(RuleFaultKind::SecondAction, index, word);
            }
            record_.emplace(clause->key, word);
            actionGiven_ = true;
            break;
        case Handling::Quick:
            if (negated_) {
                return failAt(RuleFaultKind::NegatedQuick, index, word);
            }
            if (given(*clause)) {
                return failAt(RuleFaultKind::DuplicateClause, index, word);
            }
            record_.emplace(clause->key, true);
            break;
        case Handling::Rdesk:
            if (hostGiven_) {
                return failAt(RuleFaultKind::RdeskAfterHost, index, word);
            }
            [[fallthrough]];
        case Handling::TruthFlag:
            if (given(*clause)) {
                return failAt(RuleFaultKind::DuplicateClause, index, word);
            }
            record_.emplace(clause->key, !negated_);
            rdeskGiven_ = rdeskGiven_ || clause->handling == Handling::Rdesk;
            break;
        case Handling::Host:
            if (rdeskGiven_) {
                return failAt(RuleFaultKind::HostAfterRdesk, index, word);
            }
            return await(*clause, index);
        case Handling::Name:
        case Handling::Ids:
        case Handling::Text:
        case Handling::Override:
            return await(*clause, index);
        }
        markGiven(*clause);
        negated_ = false;
        return true;
    }

    bool takeValue(std::size_t index) {
        const ClauseInfo& clause = *awaited_;
        const std::string_view value = tokens_[index];
        if (clause.handling == Handling::Name && nameMode_.empty()) {
            return takeNameMode(index);
        }
        if (clause.handling == Handling::Override && negated_) {
            return failAt(RuleFaultKind::NegatedOverride, awaitedAt_, clause.word);
        }
        if (clause.handling != Handling::Ids && given(clause)) {
            return failAt(RuleFaultKind::DuplicateClause, awaitedAt_, clause.word);
        }
        switch (clause.handling) {
        case Handling::Host:
            record_.emplace(clause.key, rule_parse_host2array(value));
            hostGiven_ = true;
            break;
        case Handling::Name:
            record_.emplace(clause.key, value);
            record_.emplace(keys::nameMatch, nameMode_);
            break;
        case Handling::Ids:
            if (!storeIds(clause, index)) {
                return false;
            }
            break;
        default:
            record_.emplace(clause.key, value);
            break;
        }
        if (negated_) {
            record_.insert_or_assign(clause.negationKey, true);
        }
        markGiven(clause);
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
            return failAt(RuleFaultKind::BadNameMode, index, awaited_->word, mode);
        }
        return true;
    }

    // Only the low 16 bits of each number are kept; a later "hwid" or
    // "class" overwrites what an earlier one stored.
    bool storeIds(const ClauseInfo& clause, std::size_t index) {
        std::array<std::uint64_t, 3> numbers{};
        IdListFault idFault;
        const std::size_t count =
            rule_parser_triple2values(tokens_[index], numbers, fault_ != nullptr ? &idFault : nullptr);
        if (count == 0) {
            return failAt(idFault.kind, index, clause.word, idFault.component);
        }
        for (std::size_t i = 0; i < count; ++i) {
            record_.insert_or_assign(clause.idKeys[i], static_cast<std::int64_t>(numbers[i] & 0xFFFF));
        }
        return true;
    }

    bool await(const ClauseInfo& clause, std::size_t index) {
        awaited_ = &clause;
        awaitedAt_ = index;
        return true;
    }

    std::size_t bitOf(const ClauseInfo& clause) const {
        return static_cast<std::size_t>(&clause - clauseTable);
    }
    bool given(const ClauseInfo& clause) const { return (given_ >> bitOf(clause)) & 1u; }
    void markGiven(const ClauseInfo& clause) { given_ |= 1u << bitOf(clause); }

    std::nullopt_t fail(RuleFaultKind kind, std::size_t lineOffset, std::string_view clause = {},
                        std::string_view subject = {}) {
        if (fault_ != nullptr) {
            *fault_ = RuleFault{kind, lineOffset, std::string(clause), std::string(subject)};
        }
        return std::nullopt;
    }
    bool failAt(RuleFaultKind kind, std::size_t tokenIndex, std::string_view clause,
                std::string_view subject = {}) {
        fail(kind, tokens_.lineOffset(tokenIndex), clause, subject);
        return false;
    }

    const TokenList& tokens_;
    RuleFault* fault_;
    json::object record_;
    const ClauseInfo* awaited_ = nullptr; // clause waiting for its value
    std::size_t awaitedAt_ = 0;           // the token index of its word
    std::string_view nameMode_;           // "is" or "contains" once read
    std::uint32_t given_ = 0;             // one bit per clauseTable entry
    bool negated_ = false;
    bool actionGiven_ = false;
    bool hostGiven_ = false;
    bool rdeskGiven_ = false;
};

} // namespace

std::optional<json::object> rule_parser_line2dictionary(const TokenList& tokens, RuleFault* fault) {
    return RecordBuilder(tokens, fault).build();
}

} // namespace halvo::rules
