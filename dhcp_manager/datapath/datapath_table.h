// What the packets of each relay interface need, resolved once per change instead of once per
// packet: counters, flood guard, the VRF's socket, the servers' addresses.

#ifndef DHCP_MANAGER_DATAPATH_DATAPATH_TABLE_H_
#define DHCP_MANAGER_DATAPATH_DATAPATH_TABLE_H_

#include <netinet/in.h>

#include <cstddef>
#include <map>
#include <vector>

#include "dhcp_manager/datapath/batch.h"
#include "dhcp_manager/datapath/flood_guards.h"
#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/forwarding.h"

namespace dhcp_manager {

// By VRF: where its requests go out.
using Outboxes = std::map<VrfIfindex, Outbox*>;

struct ServerDatapath {
  sockaddr_in address{};
  ServerCounters* counters = nullptr;
};

struct InterfaceDatapath {
  InterfaceCounters* counters = nullptr;
  InterfaceGuard* flood_guard = nullptr;                 // null without limits
  const AddressSet* own_addresses = nullptr;             // of its VRF
  Outbox* outbox = nullptr;                              // null while the VRF has no socket
  const std::vector<ServerDatapath>* servers = nullptr;  // of its instance
};

class DatapathTable {
 public:
  // `counters` must outlive the table.
  DatapathTable(Counters& counters, const FloodLimits& flood_limits);
  DatapathTable(const DatapathTable&) = delete;
  DatapathTable& operator=(const DatapathTable&) = delete;

  // Replaces the forwarding in use; the table holds no interface until Resolve. The counters must
  // hold an entry for each interface and server of `forwarding`.
  void Apply(Forwarding forwarding);

  // Changes the forwarding in use to follow `links`. Everything resolved stays as it is.
  Forwarding::Updated Update(const Links& links, const Links::Changes& changes) {
    return forwarding_.Update(links, changes);
  }

  // To be called after Apply, and whenever a socket was opened. The outboxes must outlive their
  // use: until the next Resolve.
  void Resolve(const Outboxes& outboxes);

  const Forwarding& forwarding() const { return forwarding_; }
  bool has_flood_guards() const { return flood_guards_.enabled(); }
  // Null when clients have no limit.
  ClientGuard* client_guard() { return flood_guards_.clients(); }
  UnmatchedCounters& unmatched() { return counters_.unmatched(); }

  // `interface` is one of forwarding().interfaces().
  InterfaceDatapath& Of(const RelayInterface& interface) {
    return interfaces_[static_cast<std::size_t>(&interface - forwarding_.interfaces().data())];
  }

 private:
  void ResolveServers();

  Counters& counters_;
  FloodGuards flood_guards_;
  Forwarding forwarding_;
  std::map<const RelayInstance*, std::vector<ServerDatapath>> servers_;
  std::vector<InterfaceDatapath> interfaces_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_DATAPATH_TABLE_H_
