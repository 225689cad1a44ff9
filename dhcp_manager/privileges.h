// The user and the capabilities that the manager runs with.

#ifndef DHCP_MANAGER_PRIVILEGES_H_
#define DHCP_MANAGER_PRIVILEGES_H_

#include <sys/types.h>

#include <string>

namespace dhcp_manager {

struct User {
  uid_t id;
  gid_t group;
};

// The account of that name. Throws std::runtime_error when there is none.
User FindUser(const std::string& name);

// Becomes that user for good, with CAP_NET_RAW (packet sockets, binding to a device) and
// CAP_NET_BIND_SERVICE (port 67) and no other capability, and so that no program it starts can gain
// one (no_new_privs). REQUIRES: root, or both capabilities and CAP_SETUID, CAP_SETGID, CAP_SETPCAP.
// Throws std::runtime_error.
void GiveUpPrivileges(const User& user);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_PRIVILEGES_H_
