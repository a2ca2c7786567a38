#include "tests/support/private_network.h"

#include "tests/support/files.h"
#include "tests/support/portable_fd.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#if defined(__linux__)
#include <sched.h>
#endif

namespace halvo::testkit {

namespace {

#if defined(__linux__)

// Keeps our own uid and gid inside the new user namespace, so that files the
// tests create belong to the real user.
void mapOwnIds(uid_t uid, gid_t gid) {
    const auto identity = [](unsigned id) {
        return std::to_string(id) + " " + std::to_string(id) + " 1\n";
    };
    writeFile("/proc/self/uid_map", identity(uid));
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/gid_map", identity(gid));
}

bool bringLoopbackUp() {
    int fd = openSocket(AF_INET, SOCK_DGRAM);
    if (fd < 0) {
        return false;
    }
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    bool ok = ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    if (ok) {
        request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
        ok = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    }
    close(fd);
    return ok;
}

bool enterNamespace(bool keepUsers) {
    if (keepUsers && geteuid() == 0 && unshare(CLONE_NEWNET) == 0) {
        return bringLoopbackUp();
    }
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0) {
        mapOwnIds(uid, gid);
        return bringLoopbackUp();
    }
    // Root without user namespaces may still make a network namespace.
    return unshare(CLONE_NEWNET) == 0 && bringLoopbackUp();
}
#else
// Network namespaces are Linux's own: elsewhere the tests share the port
// under a lock.
bool enterNamespace(bool) {
    return false;
}
#endif

void lockSharedPort() {
    int fd = open("/tmp/halvo-tests-port-32999.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd >= 0) {
        while (flock(fd, LOCK_EX) != 0 && errno == EINTR) {
        }
        // Kept open on purpose: the lock ends with the process.
    }
}

} // namespace

bool isolateDaemonPort(bool keepUsers) {
    if (enterNamespace(keepUsers)) {
        return true;
    }
    lockSharedPort();
    return false;
}

bool connectionEstablished(std::uint16_t port) {
    std::istringstream table(readFile("/proc/net/tcp"));
    std::string line;
    char local[16];
    std::snprintf(local, sizeof local, ":%04X ", static_cast<unsigned>(port));
    std::getline(table, line); // the heading
    while (std::getline(table, line)) {
        // "sl local_address rem_address st ...": the server side of an
        // established connection has the port as its local one and state 01.
        std::istringstream fields(line);
        std::string slot, localAddress, remoteAddress, state;
        fields >> slot >> localAddress >> remoteAddress >> state;
        if ((localAddress + " ").ends_with(local) && state == "01") {
            return true;
        }
    }
    return false;
}

} // namespace halvo::testkit
