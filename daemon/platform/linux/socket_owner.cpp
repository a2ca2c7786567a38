// The kernel's socket diagnostics (NETLINK_SOCK_DIAG, as ss(8) uses them):
// one exact lookup of the client's socket by its address pair, which names
// the socket's owner.
#include "daemon/platform/socket_owner.h"

#include <array>
#include <cstring>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace halvo::daemon {

namespace {

using boost::asio::ip::address;
using boost::asio::ip::address_v6;

struct Request {
    nlmsghdr header;
    inet_diag_req_v2 body;
};

// The address in the form the kernel keeps it: IPv4 clients of an IPv6
// listener have IPv4 sockets of their own.
address plain(const address& addr) {
    if (addr.is_v6() && addr.to_v6().is_v4_mapped()) {
        return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, addr.to_v6());
    }
    return addr;
}

void putAddress(const address& addr, __be32 (&out)[4]) {
    if (addr.is_v4()) {
        const auto bytes = addr.to_v4().to_bytes();
        std::memcpy(out, bytes.data(), bytes.size());
    } else {
        const auto bytes = addr.to_v6().to_bytes();
        std::memcpy(out, bytes.data(), bytes.size());
    }
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

} // namespace

std::optional<uid_t> localSocketOwner(const boost::asio::ip::tcp::endpoint& local,
                                      const boost::asio::ip::tcp::endpoint& remote) {
    const address ours = plain(local.address());
    const address theirs = plain(remote.address());
    if (ours.is_v4() != theirs.is_v4()) {
        return std::nullopt;
    }
    Request request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.body.sdiag_family = ours.is_v4() ? AF_INET : AF_INET6;
    request.body.sdiag_protocol = IPPROTO_TCP;
    request.body.idiag_states = ~0u;
    // The client's socket: its source is the daemon's remote end.
    request.body.id.idiag_sport = htons(remote.port());
    request.body.id.idiag_dport = htons(local.port());
    putAddress(theirs, request.body.id.idiag_src);
    putAddress(ours, request.body.id.idiag_dst);
    request.body.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    request.body.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;

    NetlinkSocket netlink;
    if (netlink.fd() < 0 || ::send(netlink.fd(), &request, sizeof request, 0) < 0) {
        return std::nullopt;
    }
    std::array<char, 8192> reply{};
    const ssize_t length = ::recv(netlink.fd(), reply.data(), reply.size(), 0);
    if (length < 0) {
        return std::nullopt;
    }
    // The reply's header, then the socket's description (netlink aligns to 4).
    constexpr std::size_t kHeaderLength = (sizeof(nlmsghdr) + 3u) & ~std::size_t{3};
    nlmsghdr header{};
    inet_diag_msg found{};
    if (static_cast<std::size_t>(length) < kHeaderLength + sizeof found) {
        return std::nullopt;
    }
    std::memcpy(&header, reply.data(), sizeof header);
    if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY ||
        header.nlmsg_len < kHeaderLength + sizeof found) {
        return std::nullopt;
    }
    std::memcpy(&found, reply.data() + kHeaderLength, sizeof found);
    return static_cast<uid_t>(found.idiag_uid);
}

} // namespace halvo::daemon
