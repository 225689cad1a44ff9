// Opens the relay's sockets, with the kernel's filters in front of them.

#ifndef DHCP_MANAGER_DATAPATH_SOCKETS_H_
#define DHCP_MANAGER_DATAPATH_SOCKETS_H_

#include <memory>
#include <optional>
#include <string>

#include "base/descriptor.h"
#include "dhcp_manager/datapath/batch_socket.h"
#include "dhcp_manager/datapath/filter_table.h"
#include "dhcp_manager/datapath/kernel_filters.h"
#include "dhcp_manager/datapath/packet_ring.h"
#include "dhcp_manager/datapath/ring_mapping.h"
#include "dhcp_manager/datapath/vrf_socket_pool.h"

namespace dhcp_manager {

// The clients' side of every interface.
struct ClientSocket {
  std::unique_ptr<BatchSocket> socket;   // sends
  std::unique_ptr<RingMapping> mapping;  // the ring's memory, when it is the kernel's
  PacketRing ring;                       // receives
};

// What the relay opens sockets by. Each operation throws std::system_error.
class SocketOpener {
 public:
  SocketOpener() = default;
  virtual ~SocketOpener() = default;

  // Whole IPv4 packets of every interface to UDP port 67 that carry a BOOTREQUEST; no fragments,
  // nothing that this device sends itself or that is for another station.
  virtual ClientSocket OpenClientSocket() = 0;

  // The servers' side of a VRF: UDP port 67 on the VRF device, or of the default VRF when
  // `vrf_device` is empty; BOOTREPLYs only, each with the link it came in through.
  // Its buffers are there for the next one when it is closed.
  virtual std::unique_ptr<BatchSocket> OpenVrfSocket(const std::string& vrf_device) = 0;

  // Leaves UDP port 67 to other programs. REQUIRES: no VRF's socket is open.
  virtual void ReleasePort() = 0;

  // What the filters in front of the sockets count, as long as the opener lives; null when they
  // cannot count.
  virtual FilterTable* filter_table() { return nullptr; }

 protected:
  SocketOpener(const SocketOpener&) = default;
  SocketOpener& operator=(const SocketOpener&) = default;
  SocketOpener(SocketOpener&&) = default;
  SocketOpener& operator=(SocketOpener&&) = default;
};

class Sockets final : public SocketOpener {
 public:
  // Prepares some sockets with large buffers, which takes a capability (CAP_NET_ADMIN) that the
  // manager gives up later. Sockets opened beyond those, and all without the capability, get the
  // largest buffers that the system allows everybody.
  //
  // Loads the filters that count (CAP_BPF). Where the kernel refuses them, it logs that, and the
  // sockets get those of filters.h, which count nothing and have no share for each interface.
  Sockets();

  ClientSocket OpenClientSocket() override;
  std::unique_ptr<BatchSocket> OpenVrfSocket(const std::string& vrf_device) override;
  void ReleasePort() override { vrfs_->ReleasePort(); }
  FilterTable* filter_table() override { return filters_ ? &filters_->table() : nullptr; }

 private:
  std::optional<KernelFilters> filters_;
  base::Descriptor client_;
  std::unique_ptr<VrfSocketPool> vrfs_;  // stays where it is, since the open sockets know it
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_SOCKETS_H_
