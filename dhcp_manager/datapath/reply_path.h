// The way of a reply: from a VRF's servers through the packet rules to the client.

#ifndef DHCP_MANAGER_DATAPATH_REPLY_PATH_H_
#define DHCP_MANAGER_DATAPATH_REPLY_PATH_H_

#include <cstddef>
#include <vector>

#include "dhcp_manager/datapath/batch.h"
#include "dhcp_manager/datapath/batch_socket.h"
#include "dhcp_manager/datapath/datapath_table.h"
#include "dhcp_manager/table/forwarding.h"
#include "protocol/control/outcome.h"

namespace dhcp_manager {

class ReplyPath {
 public:
  // `table` must outlive the path.
  explicit ReplyPath(DatapathTable& table) : table_(table) {}

  // Relays the replies that wait in `servers`, the socket of `vrf`, kMaxBatches batches at most,
  // and returns how many packets it took. Each is sent and counted when this returns. `clients` is
  // empty before and after.
  std::size_t Relay(VrfIfindex vrf, BatchSocket& servers, Outbox& clients);

 private:
  using Outcome = dhcp_relay::control::ReplyOutcome;

  void Take(VrfIfindex vrf, const Inbox::Message& packet, Outbox& clients);
  // kRelayed: it is in the outbox, and counted once it is sent.
  Outcome Forward(const RelayInterface& interface, const InterfaceDatapath& datapath,
                  const Inbox::Message& packet, Outbox& clients);
  void Flush(Outbox& clients);

  DatapathTable& table_;
  Inbox inbox_;
  std::vector<InterfaceCounters*> queued_;  // of the batch in hand; its memory is reused
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_REPLY_PATH_H_
