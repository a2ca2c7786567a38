// Who may change what the daemon shares. Everyone may look (devices,
// connections, rules, events) and work in a rule transaction of their own;
// dropping connections, unplugging devices and committing rules need root,
// the user the daemon runs as (a daemon started by a user for themselves
// obeys that user), or a member of the admin group.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace halvo::daemon {

class AccessPolicy {
  public:
    AccessPolicy(uid_t daemonUser, std::optional<gid_t> adminGroup);

    // `uid`: the client's local user; nothing for a client that is not a
    // local user, who may change nothing.
    bool mayChange(std::optional<uid_t> uid) const;

  private:
    bool inAdminGroup(uid_t uid) const;

    uid_t daemonUser_;
    std::optional<gid_t> adminGroup_;
};

// The group's id; nothing when no such group exists.
std::optional<gid_t> findGroup(const std::string& name);

} // namespace halvo::daemon
