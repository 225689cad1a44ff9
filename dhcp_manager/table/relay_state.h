// The state of the relaying, for those who publish it.

#ifndef DHCP_MANAGER_TABLE_RELAY_STATE_H_
#define DHCP_MANAGER_TABLE_RELAY_STATE_H_

#include <cstdint>
#include <string>

#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/forwarding.h"
#include "dhcp_manager/table/socket_faults.h"

namespace dhcp_manager {

class RelayState {
 public:
  RelayState() = default;
  virtual ~RelayState() = default;
  RelayState(const RelayState&) = delete;
  RelayState& operator=(const RelayState&) = delete;

  // The forwarding table in use. The reference is valid until control returns to the loop.
  virtual const Forwarding& forwarding() const = 0;
  // Changes with the forwarding table in use, and with SocketFailureOf.
  virtual std::uint64_t version() const = 0;
  // Why `vrf` has no socket; empty while it has one, or needs none.
  virtual const std::string& SocketFailureOf(VrfIfindex vrf) const = 0;
  // What is wrong with the sockets towards servers. May ask the kernel, within the call.
  virtual SocketFaults FindSocketFaults() = 0;
  // Adds to the counters what the kernel has counted since the last call.
  virtual void CollectCounters() = 0;
  // They hold an entry for each interface and server of forwarding().
  virtual const Counters& counters() const = 0;
  // Sets every counter to zero.
  virtual void ClearCounters() = 0;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_RELAY_STATE_H_
