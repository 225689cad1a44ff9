// Receives, relays and sends: the sockets around the packet rules.
//
// Messages are taken and sent in batches, from buffers that are made once. Nothing is received
// before the first Use.

#ifndef DHCP_MANAGER_DATAPATH_PACKET_RELAY_H_
#define DHCP_MANAGER_DATAPATH_PACKET_RELAY_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <vxmw/event.h>

#include "base/descriptor.h"
#include "base/token_bucket.h"
#include "dhcp_manager/datapath/adaptive_polling.h"
#include "dhcp_manager/datapath/batch.h"
#include "dhcp_manager/datapath/packet_ring.h"
#include "dhcp_manager/datapath/sockets.h"
#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/forwarding.h"
#include "protocol/wire/wire.h"

namespace dhcp_manager {

class PacketRelay {
 public:
  // `counters` must outlive the relay and hold what every Forwarding in use names. `flood_guard`
  // limits the requests of each interface.
  PacketRelay(vxmw_t* mw, Sockets sockets, Counters& counters,
              std::optional<base::RateLimit> flood_guard);
  PacketRelay(const PacketRelay&) = delete;
  PacketRelay& operator=(const PacketRelay&) = delete;

  // From now on packets go by `forwarding`. Sockets that are still right stay open, so that nothing
  // that waits in them is lost; one that cannot be opened is tried again later.
  void Use(Forwarding forwarding);

  const Forwarding& forwarding() const { return forwarding_; }

 private:
  // A request of the batch in hand that goes to servers.
  struct Pending {
    InterfaceCounters* counters;
    bool sent;  // to one server at least
  };
  struct Copy {
    std::size_t request;  // index of the pending request
    ServerCounters* server;
  };
  // What a routing domain's packets need.
  struct Domain {
    VrfIfindex vrf = kDefaultVrf;
    base::Descriptor socket;
    std::unique_ptr<Outbox> outbox;
    std::unique_ptr<vxmw::IoSource> events;
  };
  struct Server {
    sockaddr_in address{};
    ServerCounters* counters = nullptr;
  };
  // What a port's packets need besides the port, by its index.
  struct Lane {
    InterfaceCounters* counters = nullptr;
    base::TokenBucket* flood_guard = nullptr;
    Domain* domain = nullptr;                      // null while there is no socket
    const std::vector<Server>* servers = nullptr;  // of its instance
  };

  void OpenSockets();
  void OpenClients();
  void OpenDomain(VrfIfindex vrf, const std::string& name);
  void CloseDomains();
  void MakeLanes();
  base::TokenBucket* FloodGuardOf(const RelayInterface& port);

  // The loop woke up for packets.
  void AfterWake();
  void OnInterval();
  // Whether the loop wakes up for each packet.
  void WatchSockets(bool watch);
  // These take what waits, within bounds, and tell how much that was.
  std::size_t RelayRequests();
  std::size_t RelayReplies(Domain& domain);
  void TakeRequest(const PacketRing::Packet& packet);
  void TakeReply(const Domain& domain, const Inbox::Message& packet);
  std::optional<control::RequestOutcome> Relay(const RelayInterface& port, Lane& lane,
                                               const PacketRing::Packet& packet);
  std::optional<control::ReplyOutcome> Relay(const RelayInterface& port, Lane& lane,
                                             MessageBuffer message);
  void Flush(Domain& domain);
  void FinishRequests();
  void FlushToClients();
  Lane& LaneOf(const RelayInterface& port);

  vxmw_t* const mw_;
  Sockets sockets_;
  Counters& counters_;
  const std::optional<base::RateLimit> flood_limit_;
  Forwarding forwarding_;
  std::map<std::pair<std::string, std::string>, base::TokenBucket> flood_guards_;
  std::map<const Service*, std::vector<Server>> servers_;
  std::vector<Lane> lanes_;
  Inbox inbox_;
  base::Descriptor client_socket_;
  std::optional<PacketRing> requests_;  // of the client socket
  std::unique_ptr<Outbox> client_outbox_;
  std::unique_ptr<vxmw::IoSource> client_events_;
  std::map<VrfIfindex, Domain> domains_;
  std::vector<Pending> pending_;
  std::vector<Copy> copies_;
  std::vector<InterfaceCounters*> replies_;
  base::TokenBucket::Clock::time_point now_;
  AdaptivePolling adaptive_polling_;
  bool polling_ = false;
  std::string logged_reason_;
  vxmw::TimerSource retry_;
  vxmw::TimerSource interval_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_PACKET_RELAY_H_
