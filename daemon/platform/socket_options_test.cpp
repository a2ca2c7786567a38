#include "daemon/platform/socket_options.h"
#include "tests/support/portable_fd.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace halvo::daemon {
namespace {

using namespace std::chrono_literals;

int readOption(int socket, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(::getsockopt(socket, level, name, &value, &size), 0);
    return value;
}

TEST(SocketOptionsTest, ASharedConnectionWatchesItsPeerAsAsked) {
    const struct {
        std::chrono::seconds deadAfter;
        LinkWatch expected;
    } kWatches[] = {
        {30s, {10s, 5s, 4, 30s}},
        {6s, {2s, 1s, 4, 6s}},
        {3600s, {1200s, 600s, 4, 3600s}},
    };
    const int listener = testkit::listenOnLoopback(0);
    ASSERT_GE(listener, 0);
    for (const auto& [deadAfter, expected] : kWatches) {
        SCOPED_TRACE(deadAfter.count());
        const LinkWatch watch = linkWatchFor(deadAfter);
        EXPECT_EQ(watch, expected);

        const int client = testkit::connectToLoopback(testkit::localPort(listener));
        const int server = testkit::acceptConnection(listener);
        ASSERT_GE(server, 0);
        ASSERT_EQ(readOption(server, IPPROTO_TCP, TCP_NODELAY), 0) << "not inherited";
        EXPECT_TRUE(prepareSharedSocket(server, watch).has_value());
        EXPECT_NE(readOption(server, IPPROTO_TCP, TCP_NODELAY), 0);
        EXPECT_NE(readOption(server, SOL_SOCKET, SO_KEEPALIVE), 0);
#if defined(TCP_KEEPIDLE)
        EXPECT_EQ(readOption(server, IPPROTO_TCP, TCP_KEEPIDLE), watch.keepaliveIdle.count());
        EXPECT_EQ(readOption(server, IPPROTO_TCP, TCP_KEEPINTVL), watch.keepaliveInterval.count());
        EXPECT_EQ(readOption(server, IPPROTO_TCP, TCP_KEEPCNT), watch.keepaliveProbes);
#endif
#if defined(TCP_USER_TIMEOUT)
        EXPECT_EQ(readOption(server, IPPROTO_TCP, TCP_USER_TIMEOUT),
                  std::chrono::milliseconds(watch.userTimeout).count());
#endif
        ::close(client);
        ::close(server);
    }
    EXPECT_EQ(prepareSharedSocket(-1, linkWatchFor(30s)).error(),
              "cannot set TCP_NODELAY: " + std::string(std::strerror(EBADF)));
    ::close(listener);
}

} // namespace
} // namespace halvo::daemon
