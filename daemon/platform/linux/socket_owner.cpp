// The kernel's socket diagnostics (NETLINK_SOCK_DIAG, as ss(8) uses them):
// one exact lookup of the client's socket by its address pair.  Every reply
// is checked by clientUid, since the kernel may describe another socket than
// the one asked for.  The netlink socket is opened in the daemon's own
// network namespace, which is the only one the kernel then searches: a
// client in another namespace is never found, so it stays unknown.
#include "daemon/platform/socket_owner.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/peer_text.h"
#include "daemon/platform/peer_identity.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace halvo::daemon {

namespace {

namespace ip = boost::asio::ip;

struct Request {
    nlmsghdr header;
    inet_diag_req_v2 body;
};

// A message's header, padded as netlink aligns (to 4 bytes).
constexpr std::size_t kHeaderLength = (sizeof(nlmsghdr) + 3u) & ~std::size_t{3};

void putAddress(const ip::address& addr, __be32 (&out)[4]) {
    if (addr.is_v4()) {
        const auto bytes = addr.to_v4().to_bytes();
        std::memcpy(out, bytes.data(), bytes.size());
    } else {
        const auto bytes = addr.to_v6().to_bytes();
        std::memcpy(out, bytes.data(), bytes.size());
    }
}

ip::tcp::endpoint endpointOf(std::uint8_t family, const __be32 (&addr)[4], __be16 port) {
    if (family == AF_INET) {
        ip::address_v4::bytes_type bytes;
        std::memcpy(bytes.data(), addr, bytes.size());
        return {ip::address_v4(bytes), ntohs(port)};
    }
    ip::address_v6::bytes_type bytes;
    std::memcpy(bytes.data(), addr, bytes.size());
    return {ip::address_v6(bytes), ntohs(port)};
}

// The fields of one socket description that decide whose socket it is; the
// ends as the described socket sees them.
SocketReport reportOf(const inet_diag_msg& found) {
    SocketReport report;
    report.state = found.idiag_state;
    report.ends.local = endpointOf(found.idiag_family, found.id.idiag_src, found.id.idiag_sport);
    report.ends.remote = endpointOf(found.idiag_family, found.id.idiag_dst, found.id.idiag_dport);
    report.uid = static_cast<uid_t>(found.idiag_uid);
    return report;
}

class NetlinkSocket {
  public:
    NetlinkSocket() : fd_(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {
        // The kernel answers at once; the bound only guards against a kernel
        // that never does.
        timeval timeout{1, 0};
        if (fd_ >= 0) {
            ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        }
    }
    ~NetlinkSocket() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    NetlinkSocket(const NetlinkSocket&) = delete;
    NetlinkSocket& operator=(const NetlinkSocket&) = delete;
    int fd() const { return fd_; }

  private:
    int fd_;
};

std::uint32_t nextSequence() {
    static std::atomic<std::uint32_t> sequence{1};
    return sequence++;
}

// Where one reply message leaves the exchange.
enum class Step { more, done };

// The kernel's error in an NLMSG_ERROR or NLMSG_DONE message (0: none).
int errorIn(const nlmsghdr& header, const char* payload) {
    int code = 0;
    if (header.nlmsg_len >= kHeaderLength + sizeof code) {
        std::memcpy(&code, payload, sizeof code);
    }
    return code < 0 ? -code : code;
}

// Handles one reply message: sockets go to `onSocket`.  `failure` takes the
// kernel's error.
Step take(const nlmsghdr& header, const char* payload,
          const std::function<void(const inet_diag_msg&)>& onSocket, int& failure) {
    if (header.nlmsg_type == NLMSG_ERROR || header.nlmsg_type == NLMSG_DONE) {
        failure = errorIn(header, payload);
        return Step::done;
    }
    if (header.nlmsg_type == SOCK_DIAG_BY_FAMILY &&
        header.nlmsg_len >= kHeaderLength + sizeof(inet_diag_msg)) {
        inet_diag_msg found{};
        std::memcpy(&found, payload, sizeof found);
        onSocket(found);
    }
    return (header.nlmsg_flags & NLM_F_MULTI) != 0 ? Step::more : Step::done;
}

// Sends `request` and hands every socket the kernel describes in reply to
// `onSocket`, reading every part of a multi-part reply.  0, or the errno of
// the failure (ENOENT: no such socket).
int converse(Request request, const std::function<void(const inet_diag_msg&)>& onSocket) {
    NetlinkSocket netlink;
    if (netlink.fd() < 0) {
        return errno;
    }
    request.header.nlmsg_seq = nextSequence();
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (::sendto(netlink.fd(), &request, sizeof request, 0, reinterpret_cast<sockaddr*>(&kernel),
                 sizeof kernel) < 0) {
        return errno;
    }
    alignas(nlmsghdr) std::array<char, 16384> reply;
    // A dump of every socket is never asked for, so the parts are few; the
    // bound keeps a confused exchange finite.
    for (int datagram = 0; datagram < 1024; ++datagram) {
        sockaddr_nl from{};
        socklen_t fromLength = sizeof from;
        const ssize_t length = ::recvfrom(netlink.fd(), reply.data(), reply.size(), MSG_TRUNC,
                                          reinterpret_cast<sockaddr*>(&from), &fromLength);
        if (length < 0) {
            return errno == EAGAIN ? ETIMEDOUT : errno;
        }
        if (static_cast<std::size_t>(length) > reply.size()) {
            return EMSGSIZE;
        }
        if (from.nl_pid != 0) {
            continue; // not the kernel's
        }
        Step step = Step::more;
        int failure = 0;
        bool ours = false;
        const auto received = static_cast<std::size_t>(length);
        for (std::size_t at = 0; step == Step::more && at + kHeaderLength <= received;) {
            nlmsghdr header{};
            std::memcpy(&header, reply.data() + at, sizeof header);
            if (header.nlmsg_len < kHeaderLength || header.nlmsg_len > received - at) {
                break;
            }
            if (header.nlmsg_seq == request.header.nlmsg_seq) {
                ours = true;
                step = take(header, reply.data() + at + kHeaderLength, onSocket, failure);
            }
            at += NLMSG_ALIGN(header.nlmsg_len);
        }
        if (ours && step == Step::done) {
            return failure;
        }
    }
    return EPROTO;
}

Request diagnosticsRequest(std::uint8_t family) {
    Request request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.body.sdiag_family = family;
    request.body.sdiag_protocol = IPPROTO_TCP;
    request.body.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    request.body.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return request;
}

// Says why a lookup failed, at most once a minute: a flood of clients must
// not flood the log.
void logFailure(int error) {
    static std::atomic<std::int64_t> lastLogged{-1};
    const std::int64_t minute = std::chrono::duration_cast<std::chrono::minutes>(
                                    std::chrono::steady_clock::now().time_since_epoch())
                                    .count();
    if (lastLogged.exchange(minute) == minute) {
        return;
    }
    logActivity(LogLevel::error, std::string("socket diagnostics failed: ") + std::strerror(error) +
                                     "; the client is an unknown user, who may change nothing");
}

} // namespace

std::optional<uid_t> localSocketOwner(const ip::tcp::endpoint& local,
                                      const ip::tcp::endpoint& remote) {
    // The client's socket: its own end is the daemon's remote one.
    const SocketEnds asked{remote, local};
    const ip::address theirs = plainAddress(remote.address());
    const ip::address ours = plainAddress(local.address());
    if (!mayBeLocalUser(theirs) || theirs.is_v4() != ours.is_v4()) {
        return std::nullopt;
    }
    Request request = diagnosticsRequest(theirs.is_v4() ? AF_INET : AF_INET6);
    request.body.idiag_states = 1u << TCP_ESTABLISHED;
    request.body.id.idiag_sport = htons(remote.port());
    request.body.id.idiag_dport = htons(local.port());
    putAddress(theirs, request.body.id.idiag_src);
    putAddress(ours, request.body.id.idiag_dst);
    std::optional<uid_t> owner;
    bool contradicted = false;
    const int failure = converse(request, [&](const inet_diag_msg& found) {
        const std::optional<uid_t> uid = clientUid(asked, reportOf(found));
        contradicted = contradicted || !uid || (owner && *owner != *uid);
        owner = uid;
    });
    if (failure != 0 && failure != ENOENT) {
        logFailure(failure);
    }
    if (failure != 0 || contradicted) {
        return std::nullopt;
    }
    return owner;
}

util::Expected<void> socketOwnersAvailable() {
    // A dump of the sockets in no state: answered at once, and only when
    // the kernel has TCP socket diagnostics.
    Request probe = diagnosticsRequest(AF_INET);
    probe.header.nlmsg_flags |= NLM_F_DUMP;
    probe.body.idiag_states = 0;
    const int failure = converse(probe, [](const inet_diag_msg&) {});
    if (failure == ENOENT) {
        return util::Failure{"the kernel has no TCP socket diagnostics (is the tcp_diag module "
                             "available?)"};
    }
    if (failure != 0) {
        return util::Failure{std::string("the kernel's socket diagnostics fail: ") +
                             std::strerror(failure)};
    }
    return {};
}

} // namespace halvo::daemon
