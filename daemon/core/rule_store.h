// The rule sets and the rule transaction.
//
// One client at a time may hold the transaction.  It works on its own copy
// of the committed rules (the working set), which it may replace or extend,
// and then commits (the working set becomes the committed set, saved to the
// rules file first) or rolls back (the working set is dropped).  A client
// that goes away while holding the transaction is rolled back.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <string>

namespace halvo::daemon {

using ClientId = std::uint64_t;

class RuleStore {
  public:
    // `rulesPath` is where commits are saved; none keeps them in memory only.
    RuleStore(boost::json::array committed, std::optional<std::string> rulesPath);

    // Starts the client's transaction with a fresh copy of the committed
    // rules (also when it already held one).  False when another client
    // holds the transaction.
    bool begin(ClientId client);

    bool holds(ClientId client) const;

    // The client's working set while it holds the transaction, otherwise
    // the committed set.
    const boost::json::array& rulesFor(ClientId client) const;

    // Both need the transaction (the caller checks `holds`).
    void replace(ClientId client, boost::json::array rules);
    void insertFirst(ClientId client, boost::json::object rule);

    // Saves the working set and makes it the committed set, ending the
    // transaction.  On a failed save, returns the reason and changes
    // nothing: the transaction stays open.
    std::optional<std::string> commit(ClientId client);

    // Ends the client's transaction, if it holds one, without a trace.
    void rollback(ClientId client);

    const boost::json::array& committed() const { return committed_; }

  private:
    boost::json::array committed_;
    std::optional<std::string> rulesPath_;
    std::optional<ClientId> holder_;
    boost::json::array working_;
};

} // namespace halvo::daemon
