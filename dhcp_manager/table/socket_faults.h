// What is wrong with the relay's sockets towards servers, for those who publish it.

#ifndef DHCP_MANAGER_TABLE_SOCKET_FAULTS_H_
#define DHCP_MANAGER_TABLE_SOCKET_FAULTS_H_

#include <cstdint>
#include <string>
#include <vector>

#include <nettypes/ipv4_addr.h>

namespace dhcp_manager {

// A VRF that needs a socket and has none.
struct MissingSocket {
  std::string vrf_device;  // empty: the default VRF
  std::string reason;

  bool operator==(const MissingSocket&) const = default;
};

// A socket of another process that takes replies meant for the relay.
struct CompetingSocket {
  std::string vrf_device;      // whose replies it takes; empty: the default VRF
  nettypes::IPv4Addr address;  // that it is bound to; unspecified: every address
  std::uint32_t user = 0;      // whose process has made it
  std::uint32_t inode = 0;     // by which the processes that have it open can be found

  bool operator==(const CompetingSocket&) const = default;
};

struct SocketFaults {
  std::vector<MissingSocket> missing;
  std::vector<CompetingSocket> competing;
};

// "VRF red", or "the default VRF" without a device.
inline std::string VrfText(const std::string& vrf_device) {
  return vrf_device.empty() ? "the default VRF" : "VRF " + vrf_device;
}

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_SOCKET_FAULTS_H_
