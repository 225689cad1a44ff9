// The relay's sockets, with the kernel's filters in front of them.

#ifndef DHCP_MANAGER_SOCKETS_H_
#define DHCP_MANAGER_SOCKETS_H_

#include <string>

#include "wire.h"

namespace dhcp_manager {

// Clients' side of every interface: whole IPv4 packets (SOCK_DGRAM) to UDP port 67 that carry a
// BOOTREQUEST, not fragments, not what this device sends itself or what is for another station.
// With each packet the kernel says whether its checksum needs a look (PACKET_AUXDATA). Throws
// std::system_error.
dhcp_relay::wire::Descriptor OpenClientSocket();

// Servers' side of a routing domain, of the VRF device `vrf` or, when that is empty, of the default
// one: UDP port 67, BOOTREPLY only. Throws std::system_error.
dhcp_relay::wire::Descriptor OpenServerSocket(const std::string& vrf);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_SOCKETS_H_
