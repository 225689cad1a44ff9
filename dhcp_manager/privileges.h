// What the manager may do.

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
// CAP_NET_BIND_SERVICE (port 67) and no other right, none to be had by starting a program either.
// Throws std::runtime_error.
void GiveUpPrivileges(const User& user);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_PRIVILEGES_H_
