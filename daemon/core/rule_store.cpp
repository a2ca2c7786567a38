#include "daemon/core/rule_store.h"

#include "daemon/platform/rules_file.h"

namespace halvo::daemon {

namespace json = boost::json;

RuleStore::RuleStore(json::array committed, std::optional<std::string> rulesPath)
    : committed_(std::move(committed)), rulesPath_(std::move(rulesPath)) {}

bool RuleStore::begin(ClientId client) {
    if (holder_ && *holder_ != client) {
        return false;
    }
    holder_ = client;
    working_ = committed_;
    return true;
}

bool RuleStore::holds(ClientId client) const {
    return holder_ == client;
}

const json::array& RuleStore::rulesFor(ClientId client) const {
    return holds(client) ? working_ : committed_;
}

void RuleStore::replace(ClientId client, json::array rules) {
    if (holds(client)) {
        working_ = std::move(rules);
    }
}

void RuleStore::insertFirst(ClientId client, json::object rule) {
    if (holds(client)) {
        working_.insert(working_.begin(), std::move(rule));
    }
}

std::optional<std::string> RuleStore::commit(ClientId client) {
    if (!holds(client)) {
        return std::string("no rule transaction");
    }
    if (rulesPath_) {
        if (auto error = saveRulesFile(*rulesPath_, working_)) {
            return error;
        }
    }
    committed_ = std::move(working_);
    working_ = json::array();
    holder_.reset();
    return std::nullopt;
}

void RuleStore::rollback(ClientId client) {
    if (holds(client)) {
        working_ = json::array();
        holder_.reset();
    }
}

} // namespace halvo::daemon
