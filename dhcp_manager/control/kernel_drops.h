// What the kernel dropped, as the control protocol carries it.

#ifndef DHCP_MANAGER_CONTROL_KERNEL_DROPS_H_
#define DHCP_MANAGER_CONTROL_KERNEL_DROPS_H_

#include "dhcp_manager/table/counters.h"
#include "protocol/control/control.pb.h"

namespace dhcp_manager {

inline void Fill(const KernelDrops& drops, dhcp_relay::control::KernelDrops& message) {
  message.set_requests(drops.requests);
  if (drops.replies) message.set_replies(*drops.replies);
  message.set_link_events(drops.link_events);
}

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_KERNEL_DROPS_H_
