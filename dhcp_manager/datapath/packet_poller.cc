#include "dhcp_manager/datapath/packet_poller.h"

#include <utility>

namespace dhcp_manager {

PacketPoller::PacketPoller(vxmw_t* mw, Poll poll, WakeUp wake_up)
    : poll_(std::move(poll)),
      wake_up_(std::move(wake_up)),
      interval_(mw, [this] { OnInterval(); }) {}

void PacketPoller::OnWake(Clock::time_point now) {
  // A socket that was ready before polling began may still report it once.
  if (polling_ || !adaptive_polling_.ShouldStart(now)) return;
  polling_ = true;
  wake_up_(false);
  interval_.Arm(AdaptivePolling::kInterval);
}

void PacketPoller::OnInterval() {
  if (adaptive_polling_.ShouldContinue(poll_())) {
    interval_.Arm(AdaptivePolling::kInterval);
    return;
  }
  polling_ = false;
  wake_up_(true);
}

}  // namespace dhcp_manager
