#include "daemon/platform/socket_options.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace halvo::daemon {

namespace {

constexpr int kProbes = 4;

struct IntOption {
    int level;
    int name;
    const char* label;
    long long value;
};

} // namespace

LinkWatch linkWatchFor(std::chrono::seconds deadAfter) {
    const std::chrono::seconds interval = std::max(std::chrono::seconds(1), deadAfter / 6);
    const std::chrono::seconds idle =
        std::max(std::chrono::seconds(1), deadAfter - kProbes * interval);
    return {idle, interval, kProbes, deadAfter};
}

util::Expected<void> prepareSharedSocket(int socket, const LinkWatch& watch) {
    const IntOption kOptions[] = {
        {IPPROTO_TCP, TCP_NODELAY, "TCP_NODELAY", 1},
        {SOL_SOCKET, SO_KEEPALIVE, "SO_KEEPALIVE", 1},
#if defined(TCP_KEEPIDLE)
        {IPPROTO_TCP, TCP_KEEPIDLE, "TCP_KEEPIDLE", watch.keepaliveIdle.count()},
#elif defined(TCP_KEEPALIVE) // macOS names the idle time so
        {IPPROTO_TCP, TCP_KEEPALIVE, "TCP_KEEPALIVE", watch.keepaliveIdle.count()},
#endif
#if defined(TCP_KEEPINTVL)
        {IPPROTO_TCP, TCP_KEEPINTVL, "TCP_KEEPINTVL", watch.keepaliveInterval.count()},
#endif
#if defined(TCP_KEEPCNT)
        {IPPROTO_TCP, TCP_KEEPCNT, "TCP_KEEPCNT", watch.keepaliveProbes},
#endif
#if defined(TCP_USER_TIMEOUT)
        {IPPROTO_TCP, TCP_USER_TIMEOUT, "TCP_USER_TIMEOUT",
         std::chrono::duration_cast<std::chrono::milliseconds>(watch.userTimeout).count()},
#endif
    };
    for (const IntOption& option : kOptions) {
        const int value = static_cast<int>(option.value);
        if (::setsockopt(socket, option.level, option.name, &value, sizeof value) != 0) {
            return util::Failure{std::string("cannot set ") + option.label + ": " +
                                 std::strerror(errno)};
        }
    }
    return {};
}

} // namespace halvo::daemon
