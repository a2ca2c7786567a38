#include "daemon/core/rule_store.h"

#include "link/bounded_memory.h"

#include <algorithm>
#include <boost/json/monotonic_resource.hpp>
#include <new>

namespace halvo::daemon {

namespace json = boost::json;

std::optional<RuleSetCopy> copyWithin(const json::array& rules, std::size_t limit,
                                      const json::object* first) {
    link::BoundedStorage bounded = link::makeBoundedStorage(limit);
    try {
        // One arena per set: ending the transaction frees it in a few blocks.
        json::array copy(json::make_shared_resource<json::monotonic_resource>(std::size_t{4096},
                                                                              bounded.storage));
        copy.reserve(rules.size() + (first != nullptr ? 1 : 0));
        if (first != nullptr) {
            copy.push_back(*first);
        }
        for (const json::value& rule : rules) {
            copy.push_back(rule);
        }
        const std::size_t bytes = bounded.memory->used;
        return RuleSetCopy{std::move(copy), bytes};
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

RuleStore::RuleStore(json::array committed, RulesSaver* saver, TransactionLimits limits)
    : committed_(std::make_shared<const json::array>(std::move(committed))), saver_(saver),
      limits_(limits) {}

bool RuleStore::begin(ClientId client, const TransactionOwner& owner) {
    if (auto held = transactions_.find(client); held != transactions_.end()) {
        end(held);
    } else if (!owner.mayChange) {
        const auto sameUser = [&owner](const auto& entry) {
            return !entry.second.owner.mayChange && entry.second.owner.uid == owner.uid;
        };
        if (static_cast<std::size_t>(std::count_if(transactions_.begin(), transactions_.end(),
                                                   sameUser)) >= limits_.maxPerUser) {
            return false;
        }
    }
    transactions_[client] = Transaction{committed_, version_, owner, 0};
    return true;
}

bool RuleStore::holds(ClientId client) const {
    return transactions_.contains(client);
}

const json::array& RuleStore::rulesFor(ClientId client) const {
    return *snapshotFor(client);
}

std::shared_ptr<const json::array> RuleStore::snapshotFor(ClientId client) const {
    auto transaction = transactions_.find(client);
    return transaction == transactions_.end() ? committed_ : transaction->second.working;
}

std::size_t RuleStore::roomFor(ClientId client) const {
    auto transaction = transactions_.find(client);
    if (transaction == transactions_.end()) {
        return 0;
    }
    const Transaction& own = transaction->second;
    // Its own set is replaced, so it does not count against it.
    std::size_t room = limits_.maxBytes - (totalBytes_ - own.bytes);
    if (!own.owner.mayChange) {
        const std::size_t share = limits_.maxBytes / 4 * 3;
        const std::size_t others = restrictedBytes_ - own.bytes;
        room = std::min(room, share > others ? share - others : 0);
    }
    return room;
}

bool RuleStore::replace(ClientId client, RuleSetCopy rules) {
    auto transaction = transactions_.find(client);
    if (transaction == transactions_.end() || rules.bytes > roomFor(client)) {
        return false;
    }
    setWorking(transaction->second, std::move(rules));
    return true;
}

bool RuleStore::insertFirst(ClientId client, const json::object& rule) {
    auto transaction = transactions_.find(client);
    if (transaction == transactions_.end()) {
        return false;
    }
    auto grown = copyWithin(*transaction->second.working, roomFor(client), &rule);
    if (!grown) {
        return false;
    }
    setWorking(transaction->second, std::move(*grown));
    return true;
}

void RuleStore::setWorking(Transaction& transaction, RuleSetCopy rules) {
    freedBytes_ += transaction.bytes;
    totalBytes_ = totalBytes_ - transaction.bytes + rules.bytes;
    if (!transaction.owner.mayChange) {
        restrictedBytes_ = restrictedBytes_ - transaction.bytes + rules.bytes;
    }
    transaction.bytes = rules.bytes;
    transaction.working = std::make_shared<const json::array>(std::move(rules.rules));
}

void RuleStore::end(std::map<ClientId, Transaction>::iterator transaction) {
    freedBytes_ += transaction->second.bytes;
    totalBytes_ -= transaction->second.bytes;
    if (!transaction->second.owner.mayChange) {
        restrictedBytes_ -= transaction->second.bytes;
    }
    transactions_.erase(transaction);
}

RuleStore::CommitResult RuleStore::commit(ClientId client) {
    auto transaction = transactions_.find(client);
    if (transaction == transactions_.end()) {
        return {CommitOutcome::noTransaction, {}};
    }
    if (transaction->second.baseVersion != version_) {
        end(transaction);
        return {CommitOutcome::conflict, {}};
    }
    std::string problem;
    if (saver_ != nullptr) {
        RulesSaver::Result saved = saver_->save(*transaction->second.working);
        if (saved.outcome == RulesSaver::Outcome::notSaved) {
            return {CommitOutcome::notSaved, std::move(saved.problem)};
        }
        problem = std::move(saved.problem);
    }
    committed_ = transaction->second.working;
    ++version_;
    end(transaction);
    return {CommitOutcome::committed, std::move(problem)};
}

void RuleStore::rollback(ClientId client) {
    if (auto transaction = transactions_.find(client); transaction != transactions_.end()) {
        end(transaction);
    }
}

void RuleStore::replaceCommitted(json::array rules) {
    committed_ = std::make_shared<const json::array>(std::move(rules));
    ++version_;
}

} // namespace halvo::daemon
