// Links and addresses as rtnetlink's messages tell them.

#ifndef DHCP_MANAGER_KERNEL_LINK_MESSAGES_H_
#define DHCP_MANAGER_KERNEL_LINK_MESSAGES_H_

#include <cstdint>
#include <map>
#include <string>

#include "dhcp_manager/kernel/links.h"

struct nlmsghdr;

namespace dhcp_manager {

// Names of devices that stand for the VRF of a routing table, where the kernel has no VRF devices.
using VrfDevices = std::map<std::uint32_t, std::string>;

// Does to `links` what the message says: that a link or an IPv4 address is there, or that it is
// gone. Any other message changes nothing. Throws std::runtime_error when it cannot be read.
void ApplyMessage(const nlmsghdr& message, const VrfDevices& vrf_devices, Links& links);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_LINK_MESSAGES_H_
