// The relay's sockets, with the kernel's filters in front of them.

#ifndef DHCP_MANAGER_DATAPATH_SOCKETS_H_
#define DHCP_MANAGER_DATAPATH_SOCKETS_H_

#include <string>
#include <vector>

#include "base/descriptor.h"
#include "protocol/wire/wire.h"

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
  base::Descriptor OpenClientSocket();
  static void Listen(const base::Descriptor& client_socket);

  // Servers' side of a routing domain, of the VRF device `vrf` or, when that is empty, of the
  // default one: UDP port 67, BOOTREPLY only.
  base::Descriptor OpenServerSocket(const std::string& vrf);

 private:
  base::Descriptor client_;
  std::vector<base::Descriptor> servers_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_SOCKETS_H_
