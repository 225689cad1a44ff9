// Links made of netlink objects.

#ifndef DHCP_MANAGER_KERNEL_NETLINK_LINKS_H_
#define DHCP_MANAGER_KERNEL_NETLINK_LINKS_H_

#include <cstdint>
#include <map>
#include <string>

#include "dhcp_manager/kernel/links.h"

struct nl_cache;

namespace dhcp_manager {

// Names of devices that stand for the VRF of a routing table, where the kernel has no VRF devices.
using VrfDevices = std::map<std::uint32_t, std::string>;

// `link_cache` holds route/link objects, `address_cache` route/addr objects. The addresses are in
// the cache's order, which is not yet that of Links.
Links ReadLinks(nl_cache* link_cache, nl_cache* address_cache, const VrfDevices& vrf_devices);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_NETLINK_LINKS_H_
