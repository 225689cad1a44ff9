// The relay as a whole: puts the relay table and the kernel's links together after every change of
// either, and has packets go by the result.

#ifndef DHCP_MANAGER_RELAY_H_
#define DHCP_MANAGER_RELAY_H_

#include <chrono>
#include <optional>

#include <vxmw/event.h>

#include "base/token_bucket.h"
#include "dhcp_manager/datapath/packet_relay.h"
#include "dhcp_manager/kernel/link_watcher.h"
#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/resync.h"

namespace dhcp_manager {

class Relay {
 public:
  // `resync` must outlive the relay, and tells it of changes. No packet is taken before its first
  // dump is complete. Throws std::runtime_error when the kernel's links cannot be read.
  Relay(vxmw_t* mw, Sockets sockets, Resync& resync, VrfDevices vrf_devices,
        std::optional<base::RateLimit> flood_guard);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  const Forwarding& forwarding() const { return packets_.forwarding(); }
  const Counters& counters() const { return counters_; }
  void ClearCounters() { counters_.Clear(); }

 private:
  using Clock = std::chrono::steady_clock;

  void Changed();
  void Rebuild();

  Resync& resync_;
  Counters counters_;
  PacketRelay packets_;
  vxmw::TimerSource settled_;
  std::optional<Clock::time_point> first_change_;  // of those not yet in use
  LinkWatcher links_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_RELAY_H_
