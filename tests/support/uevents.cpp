#include "tests/support/uevents.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

#if defined(__linux__)
#include <linux/netlink.h>
#endif

namespace halvo::testkit {

std::string usbUevent(const std::string& action, const std::string& busid) {
    const std::string devpath = "/devices/pci0000:00/0000:00:14.0/usb1/" + busid;
    return action + "@" + devpath + '\0' + "ACTION=" + action + '\0' + "DEVPATH=" + devpath + '\0' +
           "SUBSYSTEM=usb" + '\0' + "DEVTYPE=usb_device" + '\0';
}

#if defined(__linux__)

int openUeventSender() {
    return ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
}

std::optional<std::string> sendThroughKernel(int sender, std::string_view uevent) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_LENGTH(uevent.size()));
    header.nlmsg_type = NLMSG_MIN_TYPE;
    // The acknowledgement says whether the kernel took it.
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    std::string message(reinterpret_cast<const char*>(&header), sizeof header);
    message += uevent;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (::sendto(sender, message.data(), message.size(), 0,
                 reinterpret_cast<const sockaddr*>(&kernel),
                 sizeof kernel) != static_cast<ssize_t>(message.size())) {
        return std::string("cannot send a uevent: ") + std::strerror(errno);
    }
    // The acknowledgement's header and error code; the rest is cut off.
    struct {
        nlmsghdr header;
        nlmsgerr answer;
    } reply{};
    if (::recv(sender, &reply, sizeof reply, 0) < static_cast<ssize_t>(sizeof reply) ||
        reply.header.nlmsg_type != NLMSG_ERROR) {
        return std::string("the kernel did not acknowledge a uevent");
    }
    if (reply.answer.error != 0) {
        return std::string("the kernel refused a uevent: ") + std::strerror(-reply.answer.error);
    }
    return std::nullopt;
}

std::optional<std::string> sendAsProcess(int sender, std::string_view uevent) {
    sockaddr_nl listeners{};
    listeners.nl_family = AF_NETLINK;
    listeners.nl_groups = 1;
    if (::sendto(sender, uevent.data(), uevent.size(), 0,
                 reinterpret_cast<const sockaddr*>(&listeners),
                 sizeof listeners) != static_cast<ssize_t>(uevent.size())) {
        return std::string("cannot send a uevent: ") + std::strerror(errno);
    }
    return std::nullopt;
}

#else

int openUeventSender() {
    return -1;
}

std::optional<std::string> sendThroughKernel(int, std::string_view) {
    return std::string("uevents exist only on Linux");
}

std::optional<std::string> sendAsProcess(int, std::string_view) {
    return std::string("uevents exist only on Linux");
}

#endif

} // namespace halvo::testkit
