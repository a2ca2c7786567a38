// One TLS connection on a connected non-blocking socket, driven by the
// caller: each step says whether it is done or waits until the socket is
// readable or writable.  OpenSSL reads and writes the socket itself (a
// socket BIO), which is what lets it put the session keys into the kernel.
//
// The connection never closes the socket and never sends a record of its
// own after the handshake (no close_notify): once the keys are in the
// kernel, the kernel's record sequence must be the only one.
#pragma once

#include "tls/context.h"
#include "tls/kernel_hand_off.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

using SSL = struct ssl_st;

namespace halvo::tls {

enum class Progress { done, wantRead, wantWrite };

struct Transfer {
    Progress progress = Progress::done;
    std::size_t bytes = 0; // with Progress::done: at least 1
};

class Connection {
  public:
    // A client checks the server's certificate against `serverName` (a DNS
    // name or an address); a server ignores it.
    static util::Expected<Connection> create(const Context& context, int socket,
                                             const std::string& serverName = {});

    util::Expected<Progress> handshake();
    // Reads at most `into.size()` bytes.  The library reads the socket a
    // record at a time, never past the record that holds them.
    util::Expected<Transfer> read(std::span<std::uint8_t> into);
    util::Expected<Transfer> write(std::span<const std::uint8_t> bytes);

    // The verified peer certificate's names (see certificateNames).
    std::vector<std::string> peerNames() const;

    // Whether the kernel holds both directions and nothing is buffered
    // here: the socket may go to the kernel.
    util::Expected<void> readyForKernel() const;
    const KernelState& kernelState() const { return *kernel_; }

  private:
    struct Free {
        void operator()(SSL* ssl) const;
    };
    Connection(SSL* ssl);
    // The step's outcome from SSL_get_error.
    util::Expected<Progress> outcome(int result, const char* step) const;
    // A read's or write's outcome: the bytes moved, or what it waits for.
    util::Expected<Transfer> transferred(int result, std::size_t bytes, const char* step) const;

    std::unique_ptr<SSL, Free> ssl_;
    std::unique_ptr<KernelState> kernel_;
};

} // namespace halvo::tls
