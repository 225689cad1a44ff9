// Adaptive polling on the loop: switches between waking up for each packet and polling in
// intervals.

#ifndef DHCP_MANAGER_DATAPATH_PACKET_POLLER_H_
#define DHCP_MANAGER_DATAPATH_PACKET_POLLER_H_

#include <cstddef>
#include <functional>

#include <vxmw/event.h>

#include "dhcp_manager/datapath/adaptive_polling.h"

namespace dhcp_manager {

class PacketPoller {
 public:
  using Clock = AdaptivePolling::Clock;
  // Takes what waits in every socket and returns the number of packets.
  using Poll = std::function<std::size_t()>;
  // Makes the loop wake up for packets, or not.
  using WakeUp = std::function<void(bool)>;

  PacketPoller(vxmw_t* mw, Poll poll, WakeUp wake_up);

  // To be called after each wake-up for packets.
  void OnWake(Clock::time_point now = Clock::now());

 private:
  void OnInterval();

  const Poll poll_;
  const WakeUp wake_up_;
  AdaptivePolling adaptive_polling_;
  bool polling_ = false;
  vxmw::TimerSource interval_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_PACKET_POLLER_H_
