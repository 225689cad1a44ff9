// What the manager's command line says about who is trusted.

#ifndef DHCP_MANAGER_TABLE_TRUST_H_
#define DHCP_MANAGER_TABLE_TRUST_H_

namespace dhcp_manager {

struct Trust {
  bool servers_only = false;         // replies of configured servers only
  bool drop_foreign_giaddr = false;  // requests of other relays only on trusted interfaces
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_TRUST_H_
