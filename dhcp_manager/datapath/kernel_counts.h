// Adds to the counters what the kernel has refused or dropped in front of the relay.

#ifndef DHCP_MANAGER_DATAPATH_KERNEL_COUNTS_H_
#define DHCP_MANAGER_DATAPATH_KERNEL_COUNTS_H_

#include <cstdint>
#include <vector>

#include "dhcp_manager/datapath/filter_table.h"
#include "dhcp_manager/datapath/relay_sockets.h"
#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/forwarding.h"

namespace dhcp_manager {

class KernelCounts {
 public:
  // `table` is null where the filters cannot count. Both must outlive this.
  KernelCounts(FilterTable* table, Counters& counters);

  // Adds what was counted since the last call. To be called before a socket is closed or the
  // forwarding changes, too. The counters must hold an entry for each interface of `forwarding`.
  void Collect(RelaySockets& sockets, const Forwarding& forwarding);
  // The same for what was refused by interface: enough when only the links of interfaces change.
  void CollectRefused(const Forwarding& forwarding);

 private:
  // Of one slot of the table.
  struct Refused {
    std::uint64_t runts = 0;
    std::uint64_t over_share = 0;
  };

  void CountReplies();
  void CountRefused(int link, const Refused& refused, const Forwarding& forwarding);
  // What was refused in that slot since the last call.
  Refused TakeRefused(std::size_t slot);

  FilterTable* const table_;
  Counters& counters_;
  // So far:
  std::uint64_t datagrams_ = 0;  // counted by the UDP sockets
  std::uint64_t replies_ = 0;    // of those, replies
  std::uint64_t refused_ = 0;
  std::vector<Refused> refused_by_slot_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_KERNEL_COUNTS_H_
