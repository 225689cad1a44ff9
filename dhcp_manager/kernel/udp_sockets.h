// The UDP sockets of every process in this network namespace, as the kernel reports them
// (sock_diag).

#ifndef DHCP_MANAGER_KERNEL_UDP_SOCKETS_H_
#define DHCP_MANAGER_KERNEL_UDP_SOCKETS_H_

#include <cstdint>
#include <memory>
#include <vector>

#include <nettypes/ipv4_addr.h>

namespace dhcp_manager {

// One that receives IPv4 packets.
struct UdpSocket {
  nettypes::IPv4Addr address;  // that it is bound to; unspecified: every address
  nettypes::IPv4Addr peer;     // the only one that it hears; unspecified: everybody
  bool ipv6 = false;           // it receives IPv6 packets, too
  int device = 0;              // index of the device that it is bound to; 0 for none
  std::uint32_t user = 0;
  std::uint32_t inode = 0;

  bool operator==(const UdpSocket&) const = default;
};

class UdpSocketQuery {
 public:
  UdpSocketQuery() = default;
  virtual ~UdpSocketQuery() = default;
  UdpSocketQuery(const UdpSocketQuery&) = delete;
  UdpSocketQuery& operator=(const UdpSocketQuery&) = delete;

  // Those that are bound to `port`. Does not wait: the kernel answers within the call. Throws
  // std::runtime_error when it refuses.
  virtual std::vector<UdpSocket> Find(std::uint16_t port) = 0;
};

std::unique_ptr<UdpSocketQuery> MakeUdpSocketQuery();

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_UDP_SOCKETS_H_
