// The user and the capabilities that the manager runs with.

#ifndef DHCP_MANAGER_PRIVILEGES_H_
#define DHCP_MANAGER_PRIVILEGES_H_

#include <sys/types.h>

#include <optional>
#include <string>

namespace dhcp_manager {

struct User {
  uid_t id;
  gid_t group;
};

// The account of that name. Throws std::runtime_error when there is none.
User FindUser(const std::string& name);

// The group of that name; nothing when there is none. Throws std::system_error when the look-up
// fails.
std::optional<gid_t> FindGroup(const std::string& name);

// Keeps CAP_NET_RAW (packet sockets, binding to a device) and CAP_NET_BIND_SERVICE (port 67), as
// far as the process has them, and gives up every other capability for good; no program that it
// starts can gain one (no_new_privs). It stays the user that it is. Throws std::runtime_error.
void GiveUpPrivileges();

// Becomes that user for good, with those two capabilities and no other, likewise. REQUIRES: root,
// or both capabilities and CAP_SETUID, CAP_SETGID, CAP_SETPCAP. Throws std::runtime_error.
void GiveUpPrivileges(const User& user);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_PRIVILEGES_H_
