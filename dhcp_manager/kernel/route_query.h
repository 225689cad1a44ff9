// The kernel's routes as rtnetlink reports them: the seam between the route cache and the kernel.

#ifndef DHCP_MANAGER_KERNEL_ROUTE_QUERY_H_
#define DHCP_MANAGER_KERNEL_ROUTE_QUERY_H_

#include <memory>
#include <vector>

#include <nettypes/ipv4_addr.h>

#include "dhcp_manager/kernel/links.h"

namespace dhcp_manager {

class RouteQuery {
 public:
  RouteQuery() = default;
  virtual ~RouteQuery() = default;
  RouteQuery(const RouteQuery&) = delete;
  RouteQuery& operator=(const RouteQuery&) = delete;

  // Readable from the first change of a route, a rule, a link or an address that follows Arm.
  virtual int fd() const = 0;
  // Drops what is known of changes so far.
  virtual void Arm() = 0;

  // The links through which packets for `address` leave `vrf`; none when there is no route. Does
  // not wait: the kernel answers within the call. Throws std::runtime_error when it does not.
  virtual std::vector<int> Find(VrfIfindex vrf, nettypes::IPv4Addr address) = 0;
};

// Throws std::runtime_error when the kernel refuses.
std::unique_ptr<RouteQuery> OpenRouteQuery();

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_ROUTE_QUERY_H_
