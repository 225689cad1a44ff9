// UDP sockets with large buffers for the VRFs, prepared while the manager may still have them, and
// used again when a VRF needs its socket no longer.
//
// The kernel never takes a port from a socket. So a socket that is given back stays bound to the
// port, on a device that does not exist and behind a filter that passes nothing, and moves from
// there to the next VRF.

#ifndef DHCP_MANAGER_DATAPATH_VRF_SOCKET_POOL_H_
#define DHCP_MANAGER_DATAPATH_VRF_SOCKET_POOL_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "base/descriptor.h"

namespace dhcp_manager {

class VrfSocketPool {
 public:
  // Makes a socket; one without a descriptor when it cannot.
  using Make = std::function<base::Descriptor()>;

  // Prepares `count` sockets for `port`. `make` is also called when there are no more.
  VrfSocketPool(std::size_t count, std::uint16_t port, Make make);

  // A socket bound to the port on that device, or on none when `device` is empty, with a filter
  // that passes nothing. Throws std::system_error when another process has the port there, or the
  // socket cannot be had; the pool has lost no socket then.
  base::Descriptor Take(const std::string& device);

  // Takes a socket back that Take returned: keeps it if it is one of those prepared, else closes
  // it.
  void GiveBack(base::Descriptor socket) noexcept;

  // Closes the sockets that were given back, so that other programs can have the port. Their
  // buffers are lost.
  void ReleasePort();

 private:
  base::Descriptor TakeBound(const std::string& device);
  base::Descriptor TakeUnbound(const std::string& device);

  const std::uint16_t port_;
  const Make make_;
  std::set<int> prepared_;
  std::vector<base::Descriptor> unbound_;
  std::vector<base::Descriptor> bound_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_VRF_SOCKET_POOL_H_
