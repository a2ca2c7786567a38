// The committed rule set and the clients' rule transactions.
//
// Transactions take no lock: each client's transaction works on its own copy
// of the committed rules (the working set) and remembers which commit that
// copy came from. A commit succeeds only if nobody committed since; then the
// working set, saved first, becomes the committed set. Otherwise it is
// refused as a conflict and nothing changes. Any number of clients may hold a
// transaction at once, and an idle one blocks nobody. A client that goes away
// is rolled back.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace halvo::daemon {

using ClientId = std::uint64_t;

// Keeps the committed rules between runs.
class RulesSaver {
  public:
    enum class Outcome {
        saved,
        // The new rules are in place but may not survive a power loss: they
        // are the rules now, and `problem` says what could not be confirmed.
        savedUnsynced,
        // Nothing was replaced: the old rules stay, `problem` says why.
        notSaved,
    };
    struct Result {
        Outcome outcome = Outcome::saved;
        std::string problem;
    };

    virtual ~RulesSaver() = default;
    virtual Result save(const boost::json::array& rules) = 0;
};

class RuleStore {
  public:
    enum class CommitOutcome { committed, noTransaction, conflict, notSaved };
    struct CommitResult {
        CommitOutcome outcome = CommitOutcome::committed;
        // Why the save failed, or what a committed save could not confirm.
        std::string problem;
    };

    // `saver` keeps commits; none keeps them in memory only.
    explicit RuleStore(boost::json::array committed = {}, RulesSaver* saver = nullptr);

    // Starts the client's transaction on a copy of the committed rules (anew
    // when it already held one).
    void begin(ClientId client);

    bool holds(ClientId client) const;

    // The client's working set while it holds a transaction, otherwise the
    // committed set.
    const boost::json::array& rulesFor(ClientId client) const;

    // Both need the transaction (the caller checks `holds`).
    void replace(ClientId client, boost::json::array rules);
    void insertFirst(ClientId client, boost::json::object rule);

    // Ends the transaction unless the save fails before the new rules are in
    // place (then it stays open and the committed set stays as it was). A
    // conflict ends it with nothing changed.
    CommitResult commit(ClientId client);

    // Ends the client's transaction, if it holds one, without a trace.
    void rollback(ClientId client);

    // Takes rules read again from where commits are kept (a reload): they
    // count as a commit, so an open transaction can no longer commit over them.
    void replaceCommitted(boost::json::array rules);

    const boost::json::array& committed() const { return committed_; }
    // Counts commits; a transaction may commit only over the version it began on.
    std::uint64_t version() const { return version_; }

  private:
    struct Transaction {
        boost::json::array working;
        std::uint64_t baseVersion = 0;
    };

    boost::json::array committed_;
    std::uint64_t version_ = 0;
    RulesSaver* saver_;
    std::map<ClientId, Transaction> transactions_;
};

} // namespace halvo::daemon
