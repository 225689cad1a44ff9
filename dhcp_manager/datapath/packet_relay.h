// Relays packets: the sockets, the ways of requests and replies between them, and when each socket
// is read.

#ifndef DHCP_MANAGER_DATAPATH_PACKET_RELAY_H_
#define DHCP_MANAGER_DATAPATH_PACKET_RELAY_H_

#include <cstddef>
#include <functional>
#include <string>

#include <vxmw/event.h>

#include "dhcp_manager/datapath/datapath_table.h"
#include "dhcp_manager/datapath/flood_guards.h"
#include "dhcp_manager/datapath/kernel_counts.h"
#include "dhcp_manager/datapath/packet_poller.h"
#include "dhcp_manager/datapath/relay_sockets.h"
#include "dhcp_manager/datapath/reply_path.h"
#include "dhcp_manager/datapath/request_path.h"
#include "dhcp_manager/datapath/sockets.h"
#include "dhcp_manager/kernel/route_lookup.h"
#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/forwarding.h"

namespace dhcp_manager {

class PacketRelay {
 public:
  struct Events {
    std::function<void()> on_opened;                            // a retry has opened a socket
    std::function<void(const std::string& reason)> on_failure;  // a socket cannot be opened
  };

  // `opener`, `counters` and `routes` must outlive the relay. `flood_limits` limit the
  // requests of each interface. Nothing is received before the first Apply.
  PacketRelay(vxmw_t* mw, SocketOpener& opener, Counters& counters, RouteLookup& routes,
              const FloodLimits& flood_limits, Events events);
  PacketRelay(const PacketRelay&) = delete;
  PacketRelay& operator=(const PacketRelay&) = delete;

  // Relays by `forwarding` from now on. The counters hold an entry for each of its interfaces and
  // servers.
  void Apply(Forwarding forwarding);
  // Follows `links` from now on. The sockets stay as they are.
  Forwarding::Updated Update(const Links& links, const Links::Changes& changes) {
    kernel_counts_.CollectRefused(forwarding());
    return table_.Update(links, changes);
  }

  const Forwarding& forwarding() const { return table_.forwarding(); }
  const RelaySockets& sockets() const { return sockets_; }

  // Adds to the counters what the kernel has counted since the last call. To be called before the
  // counters drop an entry.
  void CollectKernelCounts() { kernel_counts_.Collect(sockets_, forwarding()); }

 private:
  // These return the number of packets they took.
  std::size_t RelayRequests();
  std::size_t RelayReplies(VrfSocket& socket);
  std::size_t PollSockets();

  DatapathTable table_;
  RequestPath requests_;
  ReplyPath replies_;
  RelaySockets sockets_;
  PacketPoller poller_;
  KernelCounts kernel_counts_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_PACKET_RELAY_H_
