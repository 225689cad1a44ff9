// Where the kernel's routes lead, as the packets' way asks it.

#ifndef DHCP_MANAGER_KERNEL_ROUTE_LOOKUP_H_
#define DHCP_MANAGER_KERNEL_ROUTE_LOOKUP_H_

#include <nettypes/ipv4_addr.h>

#include "dhcp_manager/kernel/links.h"

namespace dhcp_manager {

class RouteLookup {
 public:
  RouteLookup() = default;
  virtual ~RouteLookup() = default;
  RouteLookup(const RouteLookup&) = delete;
  RouteLookup& operator=(const RouteLookup&) = delete;

  // Whether packets for `address` leave `vrf` through `link`: for a route with several next hops,
  // through any of them. Never waits.
  virtual bool LeadsTo(VrfIfindex vrf, nettypes::IPv4Addr address, int link) = 0;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_ROUTE_LOOKUP_H_
