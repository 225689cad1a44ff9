// The way of a request: from the clients' ring through the packet rules to every server.

#ifndef DHCP_MANAGER_DATAPATH_REQUEST_PATH_H_
#define DHCP_MANAGER_DATAPATH_REQUEST_PATH_H_

#include <cstddef>
#include <optional>
#include <vector>

#include "base/token_bucket.h"
#include "dhcp_manager/datapath/batch.h"
#include "dhcp_manager/datapath/datapath_table.h"
#include "dhcp_manager/datapath/filter_table.h"
#include "dhcp_manager/datapath/headers.h"
#include "dhcp_manager/datapath/packet_ring.h"
#include "dhcp_manager/table/forwarding.h"
#include "protocol/control/outcome.h"

namespace dhcp_manager {

class RequestPath {
 public:
  // The flood guard's time, read once per call of Relay.
  using Now = base::TokenBucket::Clock::time_point (*)();

  // `table` must outlive the path, and so must `filters`, which may be null.
  explicit RequestPath(DatapathTable& table, FilterTable* filters = nullptr,
                       Now now = &base::TokenBucket::Clock::now)
      : table_(table), filters_(filters), clock_(now) {}

  // Relays the requests that wait in `ring`, kMaxBatches batches at most, and returns how many
  // packets it took. Each is sent and counted when this returns.
  std::size_t Relay(PacketRing& ring);

 private:
  using Outcome = dhcp_relay::control::RequestOutcome;

  // A request of the batch that goes to servers.
  struct Queued {
    InterfaceCounters* counters;
    bool sent;  // to one server at least
  };
  struct Copy {
    std::size_t request;  // index of the queued request
    ServerCounters* server;
  };

  std::size_t RelayBatch(PacketRing& ring);
  // Tells the kernel's filters that so many packets of the ring are done with.
  void FreeRoom(std::size_t packets);
  void Take(const PacketRing::Packet& packet);
  // kRelayed: it is queued, and counted once it is sent.
  Outcome Forward(const RelayInterface& interface, InterfaceDatapath& datapath,
                  const PacketRing::Packet& packet);
  Outcome Forward(const RelayInterface& interface, InterfaceDatapath& datapath,
                  const UdpPayload& payload);
  // Why a flood guard refuses a request; kRelayed when none does. `payload` is nothing for one
  // with broken headers, which counts for its interface only.
  Outcome AskGuards(const RelayInterface& interface, const InterfaceDatapath& datapath,
                    const std::optional<UdpPayload>& payload);
  bool IsWithinClientLimit(const RelayInterface& interface, const UdpPayload& payload);
  void Queue(const InterfaceDatapath& datapath, const MessageBuffer& message);
  void Flush(Outbox& outbox);
  void FinishBatch();

  DatapathTable& table_;
  FilterTable* const filters_;
  const Now clock_;
  base::TokenBucket::Clock::time_point now_;
  // Of the batch in hand; their memory is reused.
  std::vector<Queued> queued_;
  std::vector<Copy> copies_;
  std::vector<Outbox*> filled_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_REQUEST_PATH_H_
