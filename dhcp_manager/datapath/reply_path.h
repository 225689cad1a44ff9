// The way of a reply: from a VRF's servers through the packet rules to the client.

#ifndef DHCP_MANAGER_DATAPATH_REPLY_PATH_H_
#define DHCP_MANAGER_DATAPATH_REPLY_PATH_H_

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

#include "base/service/log.h"
#include "dhcp_manager/datapath/batch.h"
#include "dhcp_manager/datapath/batch_socket.h"
#include "dhcp_manager/datapath/datapath_table.h"
#include "dhcp_manager/kernel/route_lookup.h"
#include "dhcp_manager/table/forwarding.h"
#include "protocol/control/outcome.h"

namespace dhcp_manager {

class ReplyPath {
 public:
  // Both must outlive the path.
  ReplyPath(DatapathTable& table, RouteLookup& routes) : table_(table), routes_(routes) {}

  // Relays the replies that wait in `servers`, the socket of `vrf`, kMaxBatches batches at most,
  // and returns how many packets it took. Each is sent and counted when this returns. `clients` is
  // empty before and after.
  std::size_t Relay(VrfIfindex vrf, BatchSocket& servers, Outbox& clients);

 private:
  using Outcome = dhcp_relay::control::ReplyOutcome;

  // Lines at once for replies that are refused, and the time between two lines after that.
  static constexpr double kLoggedRefusals = 10;
  static constexpr std::chrono::seconds kRefusalInterval{10};

  void Take(VrfIfindex vrf, const Inbox::Message& packet, Outbox& clients);
  // Why a reply to `interface` is refused for where it came from; nothing when it is not. `server`
  // is the instance's server that has the sender's address, null for none.
  std::optional<Outcome> RefusalOf(const RelayInterface& interface, const ServerDatapath* server,
                                   const Inbox::Message& packet);
  void CountRefusal(Outcome refusal, const RelayInterface& interface, const Inbox::Message& packet);
  // kRelayed: it is in the outbox, and counted once it is sent.
  Outcome Forward(const RelayInterface& interface, const InterfaceDatapath& datapath,
                  const Inbox::Message& packet, Outbox& clients);
  void Flush(Outbox& clients);

  DatapathTable& table_;
  RouteLookup& routes_;
  base::LimitedLog refusals_{kLoggedRefusals, kRefusalInterval};
  Inbox inbox_;
  std::vector<InterfaceCounters*> queued_;  // of the batch in hand; its memory is reused
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_REPLY_PATH_H_
