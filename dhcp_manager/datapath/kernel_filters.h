// The kernel's filters as eBPF programs: they let pass what those of filters.h let pass, but refuse
// runts, share the packet ring among interfaces, and count what they refuse.

#ifndef DHCP_MANAGER_DATAPATH_KERNEL_FILTERS_H_
#define DHCP_MANAGER_DATAPATH_KERNEL_FILTERS_H_

#include <linux/bpf.h>

#include <memory>
#include <vector>

#include "base/descriptor.h"
#include "dhcp_manager/datapath/filter_table.h"

namespace dhcp_manager {

namespace filter {

// `map` is the descriptor of a map that holds a FilterMemory.
//
// In place of kClientPackets. A request that is shorter than a message without options is a runt.
std::vector<bpf_insn> ClientProgram(int map);
// In place of kServerDatagrams.
std::vector<bpf_insn> ServerProgram(int map);

}  // namespace filter

class KernelFilters {
 public:
  // Loads the programs, which takes a capability (CAP_BPF) that the manager gives up later; to
  // attach them takes none. Throws std::system_error.
  KernelFilters();

  // `socket` is a packet socket, or a UDP socket. These throw std::system_error.
  void AttachToClients(int socket) const;
  void AttachToServers(int socket) const;

  FilterTable& table() { return table_; }

 private:
  struct Unmap {
    void operator()(FilterMemory* memory) const;
  };

  base::Descriptor map_;
  std::unique_ptr<FilterMemory, Unmap> memory_;
  FilterTable table_;
  base::Descriptor clients_;
  base::Descriptor servers_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_KERNEL_FILTERS_H_
