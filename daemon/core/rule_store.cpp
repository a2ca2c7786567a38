#include "daemon/core/rule_store.h"

namespace halvo::daemon {

namespace json = boost::json;

RuleStore::RuleStore(json::array committed, RulesSaver* saver)
    : committed_(std::move(committed)), saver_(saver) {}

void RuleStore::begin(ClientId client) {
    transactions_[client] = Transaction{committed_, version_};
}

bool RuleStore::holds(ClientId client) const {
    return transactions_.contains(client);
}

const json::array& RuleStore::rulesFor(ClientId client) const {
    auto transaction = transactions_.find(client);
    return transaction == transactions_.end() ? committed_ : transaction->second.working;
}

void RuleStore::replace(ClientId client, json::array rules) {
    if (auto transaction = transactions_.find(client); transaction != transactions_.end()) {
        transaction->second.working = std::move(rules);
    }
}

void RuleStore::insertFirst(ClientId client, json::object rule) {
    if (auto transaction = transactions_.find(client); transaction != transactions_.end()) {
        json::array& working = transaction->second.working;
        working.insert(working.begin(), std::move(rule));
    }
}

RuleStore::CommitResult RuleStore::commit(ClientId client) {
    auto transaction = transactions_.find(client);
    if (transaction == transactions_.end()) {
        return {CommitOutcome::noTransaction, {}};
    }
    if (transaction->second.baseVersion != version_) {
        transactions_.erase(transaction);
        return {CommitOutcome::conflict, {}};
    }
    std::string problem;
    if (saver_ != nullptr) {
        RulesSaver::Result saved = saver_->save(transaction->second.working);
        if (saved.outcome == RulesSaver::Outcome::notSaved) {
            return {CommitOutcome::notSaved, std::move(saved.problem)};
        }
        problem = std::move(saved.problem);
    }
    committed_ = std::move(transaction->second.working);
    ++version_;
    transactions_.erase(transaction);
    return {CommitOutcome::committed, std::move(problem)};
}

void RuleStore::rollback(ClientId client) {
    transactions_.erase(client);
}

void RuleStore::replaceCommitted(json::array rules) {
    committed_ = std::move(rules);
    ++version_;
}

} // namespace halvo::daemon
