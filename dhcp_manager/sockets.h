// The relay's sockets, with the kernel's filters in front of them.

#ifndef DHCP_MANAGER_SOCKETS_H_
#define DHCP_MANAGER_SOCKETS_H_

#include <string>
#include <vector>

#include "wire.h"

namespace dhcp_manager {

// Opens them. Each throws std::system_error.
class Sockets {
 public:
  // Makes some with room for bursts, which takes a right (CAP_NET_ADMIN) that the manager gives up
  // later. Those opened beyond them, and all without the right, have the room that anybody may
  // have.
  Sockets();

  // Clients' side of every interface: whole IPv4 packets (SOCK_DGRAM) to UDP port 67 that carry a
  // BOOTREQUEST, not fragments, not what this device sends itself or what is for another station.
  // Hears nothing before Listen.
  dhcp_relay::wire::Descriptor OpenClientSocket();
  static void Listen(const dhcp_relay::wire::Descriptor& client_socket);

  // Servers' side of a routing domain, of the VRF device `vrf` or, when that is empty, of the
  // default one: UDP port 67, BOOTREPLY only.
  dhcp_relay::wire::Descriptor OpenServerSocket(const std::string& vrf);

 private:
  dhcp_relay::wire::Descriptor client_;
  std::vector<dhcp_relay::wire::Descriptor> servers_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_SOCKETS_H_
