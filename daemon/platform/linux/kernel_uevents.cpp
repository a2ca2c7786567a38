#include "daemon/platform/linux/kernel_uevents.h"

#include "daemon/platform/linux/uevent_message.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::daemon {

namespace {

// The multicast group the kernel sends on (udev re-sends on group 2).
constexpr unsigned kKernelGroup = 1;
// Messages read per wake-up before other work gets its turn.
constexpr int kReadsPerTurn = 64;
// A burst of plugs must not overflow the socket; the kernel caps the size.
constexpr int kReceiveBuffer = 1 << 20;
// Stands for a sender without a netlink address, which is not the kernel.
constexpr std::uint32_t kUnnamedSender = ~0U;

} // namespace

KernelUevents::KernelUevents(boost::asio::io_context& io, int socket, bool fromNetlink)
    : socket_(io, socket), fromNetlink_(fromNetlink), buffer_(kMaxUeventSize + 1) {}

void KernelUevents::start(ChangeSink sink) {
    sink_ = std::move(sink);
    stopped_ = false;
    awaitMessages();
}

void KernelUevents::stop() {
    stopped_ = true;
    boost::system::error_code ignored;
    socket_.cancel(ignored);
}

void KernelUevents::awaitMessages() {
    socket_.async_wait(boost::asio::posix::descriptor_base::wait_read,
                       [this](const boost::system::error_code& error) {
                           if (!error && readWaiting() && !stopped_) {
                               awaitMessages();
                           }
                       });
}

std::variant<KernelUevents::Datagram, int> KernelUevents::receive() {
    sockaddr_nl sender{};
    iovec chunk{buffer_.data(), buffer_.size()};
    msghdr header{};
    header.msg_name = &sender;
    header.msg_namelen = sizeof sender;
    header.msg_iov = &chunk;
    header.msg_iovlen = 1;
    const ssize_t size = ::recvmsg(socket_.native_handle(), &header, MSG_DONTWAIT);
    if (size < 0) {
        return errno;
    }
    // The writer of a handed-over socket stands for the kernel.
    std::uint32_t senderPort = 0;
    if (fromNetlink_) {
        const bool named = header.msg_namelen == sizeof sender && sender.nl_family == AF_NETLINK;
        senderPort = named ? sender.nl_pid : kUnnamedSender;
    }
    return Datagram{static_cast<std::size_t>(size), senderPort};
}

bool KernelUevents::readWaiting() {
    // A sink may stop the reports.
    for (int read = 0; read < kReadsPerTurn && !stopped_; ++read) {
        auto received = receive();
        if (const int* error = std::get_if<int>(&received)) {
            if (*error == ENOBUFS) {
                // The kernel dropped messages: any device may have changed.
                sink_(BusChange{"", "lost"});
                continue;
            }
            if (*error == EAGAIN || *error == EWOULDBLOCK || *error == EINTR) {
                return true;
            }
            std::fprintf(stderr, "halvod: reading uevents failed: %s\n", std::strerror(*error));
            return false;
        }
        const Datagram& datagram = std::get<Datagram>(received);
        if (datagram.size == 0 && !fromNetlink_) {
            return false; // the writer closed the socket pair
        }
        auto change =
            parseUevent(std::string_view(buffer_.data(), datagram.size), datagram.senderPort);
        if (change) {
            sink_(*change);
        }
    }
    return true;
}

util::Expected<int> openUeventSocket() {
    const int socket =
        ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT);
    if (socket < 0) {
        return util::Failure{std::string("netlink socket: ") + std::strerror(errno)};
    }
    const int bufferSize = kReceiveBuffer;
    ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kKernelGroup;
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        ::close(socket);
        return util::Failure{std::string("netlink bind: ") + std::strerror(error)};
    }
    return socket;
}

} // namespace halvo::daemon
