// The bounds that keep one client, or a crowd of them, from taking the
// daemon's memory, its client table or its descriptors. Each has an option
// (halvod(8)).
#pragma once

#include <chrono>
#include <cstddef>

namespace halvo::daemon {

inline constexpr std::size_t kMiB = 1024u * 1024u;

struct ClientLimits {
    std::size_t maxClients = 4096;
    // Well below maxClients: it takes many users to fill the table.
    std::size_t maxClientsPerUser = 64;
    // Places in the table that only administrators (who may change what is
    // shared) take, so that no crowd keeps them out; at most half the table.
    std::size_t reservedClients = 64;
    // A client is not read while this much of its output is unsent: it gets
    // its replies before it may ask again.
    std::size_t readPauseBytes = 1 * kMiB;
    // A client that leaves more unread (events pile up) is dropped; above
    // the largest reply, a full rule list.
    std::size_t maxUnreadBytes = 128 * kMiB;
    // All clients' unsent output and received payloads together; past it,
    // payloads wait to be read and clients with unread output are dropped.
    std::size_t memoryBudget = 128 * kMiB;
    // Memory one request's JSON may take once parsed.
    std::size_t maxParseBytes = 512 * kMiB;
    // When the table, or a user's share of it, is full: a client that made
    // no request this long after connecting makes room at once (an event
    // monitor asks nothing, so silence alone does not end a client) ...
    std::chrono::seconds firstRequestAfter{5};
    // ... and so does a client idle this long.
    std::chrono::seconds idleAfter{600};
    // A payload must arrive in full within this time of its header.
    std::chrono::seconds payloadTimeout{30};
    // What the rule sets of all open transactions may hold together, and how
    // many transactions one user (who may not change) may hold open.
    std::size_t transactionBytes = 256 * kMiB;
    std::size_t transactionsPerUser = 8;

    bool operator==(const ClientLimits&) const = default;
};

// Descriptors kept for all but the control clients: the USB/IP hosts, the
// listening sockets and their spares, files, look-ups, the journal.
inline constexpr std::size_t kDescriptorsKept = 256;

// `limits` with no more clients than `descriptors` open files can serve
// besides what the daemon keeps for itself.
ClientLimits fitToDescriptors(ClientLimits limits, std::size_t descriptors);

} // namespace halvo::daemon
