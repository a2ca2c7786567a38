// The committed rule set and the clients' rule transactions.
//
// Transactions take no lock: each client's transaction works on its own copy
// of the committed rules (the working set) and remembers which commit that
// copy came from. A commit succeeds only if nobody committed since; then the
// working set, saved first, becomes the committed set. Otherwise it is
// refused as a conflict and nothing changes. Any number of clients may hold a
// transaction at once, and an idle one blocks nobody. A client that goes away
// is rolled back.
//
// Memory stays bounded: a transaction shares the committed set until it
// changes its copy; a changed working set lives in memory of its own, counted,
// and all working sets together may hold at most TransactionLimits::maxBytes.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>

namespace halvo::daemon {

using ClientId = std::uint64_t;

struct TransactionLimits {
    // What the working sets of all open transactions may hold together. Those
    // who may not change what is shared get three quarters of it: the rest
    // stays for those who may.
    std::size_t maxBytes = std::size_t{256} << 20;
    // Open transactions of one user who may not change what is shared.
    std::size_t maxPerUser = 8;
};

// Who holds a transaction.
struct TransactionOwner {
    std::optional<uid_t> uid;
    bool mayChange = true;
};

// A rule set in memory of its own, and how much that memory holds.
struct RuleSetCopy {
    boost::json::array rules;
    std::size_t bytes = 0;
};

// A copy of `rules` (after `first`, when given) in memory of its own; nothing
// when it would take more than `limit` bytes. Touches no shared state: it may
// run on any thread.
std::optional<RuleSetCopy> copyWithin(const boost::json::array& rules, std::size_t limit,
                                      const boost::json::object* first = nullptr);

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
    explicit RuleStore(boost::json::array committed = {}, RulesSaver* saver = nullptr,
                       TransactionLimits limits = {});

    // Starts the client's transaction on the committed rules (anew when it
    // already held one); false, with nothing begun, when an owner who may not
    // change already holds TransactionLimits::maxPerUser of them.
    bool begin(ClientId client, const TransactionOwner& owner = {});

    bool holds(ClientId client) const;

    // The client's working set while it holds a transaction, otherwise the
    // committed set.
    const boost::json::array& rulesFor(ClientId client) const;
    // The same, kept alive for work on another thread.
    std::shared_ptr<const boost::json::array> snapshotFor(ClientId client) const;

    // The most a new working set of the client may hold: its owner's share
    // of the limit less what the other transactions hold (0 without one).
    std::size_t roomFor(ClientId client) const;

    // Both need the transaction (the caller checks `holds`); false, with the
    // working set unchanged, when the new one does not fit roomFor.
    bool replace(ClientId client, RuleSetCopy rules);
    bool insertFirst(ClientId client, const boost::json::object& rule);

    // Ends the transaction unless the save fails before the new rules are in
    // place (then it stays open and the committed set stays as it was). A
    // conflict ends it with nothing changed.
    CommitResult commit(ClientId client);

    // Ends the client's transaction, if it holds one, without a trace.
    void rollback(ClientId client);

    // Takes rules read again from where commits are kept (a reload): they
    // count as a commit, so an open transaction can no longer commit over them.
    void replaceCommitted(boost::json::array rules);

    const boost::json::array& committed() const { return *committed_; }
    // Counts commits; a transaction may commit only over the version it began on.
    std::uint64_t version() const { return version_; }
    // What the working sets of open transactions hold.
    std::size_t transactionBytes() const { return totalBytes_; }
    // What working sets freed since the last call held.
    std::size_t takeFreedBytes() { return std::exchange(freedBytes_, 0); }
    const TransactionLimits& limits() const { return limits_; }

  private:
    struct Transaction {
        std::shared_ptr<const boost::json::array> working;
        std::uint64_t baseVersion = 0;
        TransactionOwner owner;
        std::size_t bytes = 0; // of its own working set; 0 while it shares the committed one
    };

    void setWorking(Transaction& transaction, RuleSetCopy rules);
    void end(std::map<ClientId, Transaction>::iterator transaction);

    std::shared_ptr<const boost::json::array> committed_;
    std::uint64_t version_ = 0;
    RulesSaver* saver_;
    TransactionLimits limits_;
    std::map<ClientId, Transaction> transactions_;
    std::size_t totalBytes_ = 0;
    std::size_t restrictedBytes_ = 0; // of owners who may not change
    std::size_t freedBytes_ = 0;
};

} // namespace halvo::daemon
