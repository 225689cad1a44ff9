// The relay as a whole: combines the relay table and the kernel's links, and relays packets by the
// result. A change of the relay table makes all anew; a change of links changes what depends on it.

#ifndef DHCP_MANAGER_RELAY_H_
#define DHCP_MANAGER_RELAY_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <vxmw/event.h>

#include "base/service/log.h"
#include "dhcp_manager/datapath/competing_sockets.h"
#include "dhcp_manager/datapath/flood_guards.h"
#include "dhcp_manager/datapath/packet_relay.h"
#include "dhcp_manager/datapath/sockets.h"
#include "dhcp_manager/kernel/link_socket.h"
#include "dhcp_manager/kernel/link_watcher.h"
#include "dhcp_manager/kernel/route_cache.h"
#include "dhcp_manager/kernel/udp_sockets.h"
#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/relay_state.h"
#include "dhcp_manager/table/resync.h"
#include "dhcp_manager/table/trust.h"

namespace dhcp_manager {

class Relay final : public RelayState {
 public:
  // `resync` must outlive the relay, and reports its changes to it. No packet is received before
  // the first dump is complete. Throws std::runtime_error when the kernel's routes cannot be read.
  Relay(vxmw_t* mw, Sockets sockets, std::unique_ptr<LinkSocket> link_socket, Resync& resync,
        const VrfDevices& vrf_devices, const FloodLimits& flood_limits, const Trust& trust);
  ~Relay() override;
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  const Forwarding& forwarding() const override { return packets_.forwarding(); }
  std::uint64_t version() const override { return version_ + packets_.sockets().version(); }
  const std::string& SocketFailureOf(VrfIfindex vrf) const override {
    return packets_.sockets().FailureOf(vrf);
  }
  SocketFaults FindSocketFaults() override;
  void CollectCounters() override;
  const Counters& counters() const override { return counters_; }
  void ClearCounters() override;

 private:
  using Clock = std::chrono::steady_clock;

  // Lines and faults at once for sockets, and the time between two of them after that.
  static constexpr double kReportedFaults = 10;
  static constexpr std::chrono::seconds kFaultInterval{10};

  void ScheduleRebuild();
  void Rebuild();
  void LookForCompetingSockets();
  void ReportFault(const std::string& text);
  void Follow(const Links::Changes& changes);

  Resync& resync_;
  const Trust trust_;
  Sockets sockets_;
  Counters counters_;
  RouteCache routes_;
  base::LimitedLog faults_{kReportedFaults, kFaultInterval};
  std::unique_ptr<UdpSocketQuery> udp_sockets_;
  CompetingSockets competing_sockets_;
  PacketRelay packets_;
  vxmw::TimerSource settled_;
  std::uint64_t version_ = 0;
  std::optional<Clock::time_point> first_change_;  // since the latest rebuild
  LinkWatcher links_;
  std::uint64_t link_overruns_ = 0;  // of links_, as far as they are counted
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_RELAY_H_
