#include "daemon/control/access_policy.h"

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace halvo::daemon {

namespace {

// Buffer for the reentrant passwd and group look-ups.
std::vector<char> lookupBuffer() {
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    return std::vector<char>(size > 0 ? static_cast<std::size_t>(size) : 16384u);
}

} // namespace

AccessPolicy::AccessPolicy(uid_t daemonUser, std::optional<gid_t> adminGroup)
    : daemonUser_(daemonUser), adminGroup_(adminGroup) {}

bool AccessPolicy::mayChange(std::optional<uid_t> uid) const {
    if (!uid) {
        return false;
    }
    return *uid == 0 || *uid == daemonUser_ || inAdminGroup(*uid);
}

bool AccessPolicy::inAdminGroup(uid_t uid) const {
    if (!adminGroup_) {
        return false;
    }
    std::vector<char> buffer = lookupBuffer();
    passwd entry{};
    passwd* user = nullptr;
    if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &user) != 0 || user == nullptr) {
        return false;
    }
    // Primary and supplementary groups, as a login of that user would have.
#if defined(__APPLE__)
    using GroupId = int; // Apple's getgrouplist takes int
#else
    using GroupId = gid_t;
#endif
    std::vector<GroupId> groups(64);
    int count = static_cast<int>(groups.size());
    while (::getgrouplist(user->pw_name, static_cast<GroupId>(user->pw_gid), groups.data(),
                          &count) < 0) {
        groups.resize(static_cast<std::size_t>(count) * 2 + 1);
        count = static_cast<int>(groups.size());
    }
    groups.resize(static_cast<std::size_t>(count));
    for (GroupId group : groups) {
        if (static_cast<gid_t>(group) == *adminGroup_) {
            return true;
        }
    }
    return false;
}

std::optional<gid_t> findGroup(const std::string& name) {
    std::vector<char> buffer = lookupBuffer();
    group entry{};
    group* found = nullptr;
    while (::getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    if (found == nullptr) {
        return std::nullopt;
    }
    return found->gr_gid;
}

} // namespace halvo::daemon
